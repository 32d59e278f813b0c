#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "SessionTest.h"
#include "platform/linux/FileDescriptor.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {
namespace {

using Texts = std::vector<std::string>;

const Bytes kTextIcon = {0x05, 0x01};
const Bytes kCallIcon = {0x03, 0x01};
const Bytes kPlainIcon = {0xFA, 0x01, 0x01};  ///< of icon 8

constexpr const char* kOtherKeysChanged = "org.corvale.wrixel2prefs.preferencechanged/hk";

/// An app's table. Icon 29 shows the text at once, and nothing but it: where a test is about
/// whether something is shown, the two seconds until another icon's text say nothing.
std::string appTable(const std::string& app, int icon = 29) {
  return "[apps.\"" + app + "\"]\nicon = " + std::to_string(icon) +
         "\nrepeat = 0\npattern = 4\npreview = true\n";
}

TEST_F(SessionTest, ANotificationReachesTheWrist) {
  writeSettings(appTable("notify-send", 8));
  startBoth();
  const auto view = start({WRIXEL2_BANDVIEW_PATH, "--once"});
  waitUntil("the band view", [this] { return hasOwner("org.freedesktop.Notifications"); });
  const auto sender = start({"notify-send", "Anna", "See <b>you</b> at six &amp; more"});
  waitForExit(*sender, 0);
  waitForExit(*view, 0, std::chrono::seconds(30));
  EXPECT_EQ(view->errors(), "");
  for (const char* stage : {"message in", "first write", "icon", "vibration", "text"}) {
    EXPECT_NE(view->output().find(stage), std::string::npos) << view->output();
  }
  // The band's screen takes 18 bytes.
  EXPECT_EQ(shownTexts(), Texts{"Anna:See you at si"});
  EXPECT_TRUE(hasShown(kPlainIcon));
  EXPECT_TRUE(hasShown(kTextIcon));
  for (const Program* program : {daemon_.get(), companion_.get()}) {
    EXPECT_FALSE(program->hasLogged("See you")) << "a message's text in the log";
    EXPECT_FALSE(program->hasLogged(kBandsKey)) << "the pairing key in the log";
  }
}

TEST_F(SessionTest, RulesDecideWhatIsShown) {
  const std::string apps = appTable("Chat") + appTable("Mail") + appTable("*") + appTable("Q", 0);
  writeSettings("donotannoy = true\ntimeout = 600\nonlyLocked = true\nconnectedMode = 1\n" + apps);
  startCompanion();
  startDaemon();
  waitForBand();
  // Unlocked, as the companion says at the start.
  bulletin("Chat", "Chat", "unlocked");
  post("com.apple.springboard.lockcomplete");
  post("com.apple.springboard.lockstate");
  bulletin("Chat", "Chat", "first");
  waitForText("Chat:first");
  bulletin("Chat", "Chat", "annoying");
  bulletin("Mail", "Mail", "another app");
  waitForText("Mail:another app");
  EXPECT_EQ(shownTexts(), (Texts{"Chat:first", "Mail:another app"}));

  events_.clear();
  writeSettings("enabled = \"no\"\n" + apps);
  const std::string problem =
      (directory_ / "config/wrixel2/settings.toml").string() + ":1: enabled";
  waitUntil("the broken file is reported", [&] { return companion_->hasLogged(problem); });
  writeSettings("connectedMode = 1\n" + apps);
  waitForPosting(kOtherKeysChanged);
  bulletin("Chat", "Chat", "not annoying");
  tell("DND", {{"DNDEnabled", true}});
  bulletin("Chat", "Chat", "disturbing");
  tell("phoneCall", {{"newCall", 1}, {"text", "Disturbing"}});
  tell("DND", {{"DNDEnabled", false}});
  // An app that was never seen before has its settings from the first notification on.
  notify("Q", "Q", "nothing");
  notify("Other", "Other", "new", {{"desktop-entry", "org.example.New"}});
  waitForText("Other:new");
  EXPECT_EQ(shownTexts(), (Texts{"Chat:not annoying", "Other:new"}));
}

TEST_F(SessionTest, CallsAndAlarmsGoThroughEverythingUntilTheyEnd) {
  const auto& service = platform::linux::kNotificationService;
  serveAlerts();
  writeSettings("connectedMode = 1\n");
  startBoth();
  waitForBand();
  tell("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  waitForText("Anna");
  EXPECT_TRUE(hasShown(kCallIcon));
  events_.clear();
  tell("phoneCall", {{"callHanged", true}});
  waitUntil("the band is stopped", [this] { return isStopped(); });
  EXPECT_TRUE(hasShown({0x00}));

  writeSettings("connectedMode = 1\nonlyLocked = true\n");
  waitForPosting(kOtherKeysChanged);
  tell("DND", {{"DNDEnabled", true}});
  auto app = BusConnection::openAddress(loop_, privateBus_.address());
  ASSERT_TRUE(app);
  const auto ring =
      (*app)->newMethodCall(service, "Notify", "susssasa{sv}i",
                            {"Clocks", 0, "", "Wake up", "07:00",
                             Array{"app.stop-alarm::1", "Stop", "app.snooze-alarm::1", "Snooze"},
                             Dictionary{{"desktop-entry", "org.gnome.clocks"}}, 0});
  ASSERT_TRUE(ring);
  int number = 0;
  const auto pending = (*app)->callAsync(*ring, [&number](const BusMessage& reply) {
    number = reply.arguments().value().front().intValue();
  });
  waitUntil("the alarm rings", [&] { return number != 0 && hasShown({0xFA, 0x01, 0x0A}); });
  events_.clear();
  bus_->emitSignal(service.path, service.interface, "NotificationClosed", "uu", {number, 2});
  waitUntil("the band is stopped", [this] { return isStopped(); });
}

TEST_F(SessionTest, TheDefaultsHoldOnlyWhereNobodyHasTheCompanionsName) {
  struct Unref {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };
  // A program that has the name and never answers.
  sd_bus* bus = nullptr;
  ASSERT_GE(sd_bus_new(&bus), 0);
  std::unique_ptr<sd_bus, Unref> hanging(bus);
  sd_bus_set_bus_client(bus, 1);
  sd_bus_set_address(bus, privateBus_.address().c_str());
  ASSERT_GE(sd_bus_start(bus), 0);
  ASSERT_GE(sd_bus_request_name(bus, kCompanionName, 0), 0);

  startDaemon();
  // There is nobody to say where the key is: the band is set to the one that the daemon has.
  setBandProperty("PairingKey", "s", kFallbackKey);
  tell("DND", {{"DNDEnabled", true}});
  tell("letUsStart");
  waitUntil("the daemon misses the answer",
            [this] { return daemon_->hasLogged("nothing starts without them"); });
  EXPECT_NE(bus_->getProperty(kStatus, "Problem")->text()->find("does not answer"),
            std::string::npos);
  EXPECT_TRUE(events_.empty());

  hanging.reset();
  waitUntilServed();
  tell("phoneCall", {{"newCall", true}, {"text", "Disturbing"}});
  tell("DND", {{"DNDEnabled", false}});
  tell("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  waitForText("Anna");
  EXPECT_EQ(shownTexts(), Texts{"Anna"});
  EXPECT_TRUE(daemon_->hasLogged("No settings from the shell companion, using the defaults"));
}

TEST_F(SessionTest, ASlowDiskHoldsNoAlertUp) {
  writeSettings(appTable("*"));
  startDaemon();
  environment_["ASAN_OPTIONS"] = "detect_leaks=0";  // which a traced program cannot look for
  // What is written lasts longer than the daemon's patience.
  companion_ = start({"strace", "-D", "-f", "-qq", "-o", "/dev/null", "-e",
                      "inject=fsync,fdatasync:delay_enter=2500000", WRIXEL2_COMPANION_PATH, "--log",
                      "stderr"});
  waitUntilServed();
  waitForBand();
  notify("New", "New", "hello");  // which is written down at once
  waitForText("New:hello");
  EXPECT_FALSE(daemon_->hasLogged("No settings from the shell companion"));
}

TEST_F(SessionTest, AFloodOfPostingsHoldsNothingUp) {
  writeSettings(appTable("Chat"));
  startBoth();
  const auto flooder = BusConnection::openAddress(loop_, privateBus_.address());
  ASSERT_TRUE(flooder);
  for (int i = 0; i < 60'000; ++i) {
    auto posting = (*flooder)->newMethodCall(
        {kDaemonName, "/org/corvale/NotifyCenter", "org.corvale.NotifyCenter"}, "Post", "s",
        {kOtherKeysChanged});
    posting->setExpectsReply(false);
    ASSERT_EQ((*flooder)->send(*posting), std::nullopt);
  }
  bulletin("Chat", "Chat", "hello");
  waitForText("Chat:hello");
}

TEST_F(SessionTest, ALinkThatDropsOnTheWayIsMadeAnew) {
  writeSettings(appTable("Chat", 8));
  startBoth();
  bulletin("Chat", "Chat", "dropped");
  waitUntil("the first write", [this] { return has("Written"); });
  callBand("Drop", "i", {6});
  waitForText("Chat:dropped");
  EXPECT_GE(daemon_->timesLogged("Peripheral successfully connected"), 2);

  // Between icon and text: that text is lost, and the next alert finds its way.
  events_.clear();
  bulletin("Chat", "Chat", "lost");
  waitUntil("the icon", [this] { return hasShown(kPlainIcon); });
  callBand("Drop", "i", {7});
  waitUntil("the daemon notices", [this] { return daemon_->hasLogged("DISCONNECT (7)"); });
  bulletin("Chat", "Chat", "found");
  waitForText("Chat:found");
}

class SlowSessionTest : public SessionTest {};

TEST_F(SlowSessionTest, TheBandViewSaysWhatNeverCame) {
  const auto view = start({WRIXEL2_BANDVIEW_PATH, "--once"});
  waitUntil("the band view", [this] { return hasOwner("org.freedesktop.Notifications"); });
  const auto sender = start({"notify-send", "Anna", "Hi"});
  waitForExit(*sender, 0);
  waitForExit(*view, 1, std::chrono::seconds(40));
  EXPECT_EQ(view->output(), "message in        0 ms\n");
  EXPECT_TRUE(view->hasLogged("no first write (there is no virtual band")) << view->errors();
}

TEST_F(SessionTest, AnotherOfAKindIsRefusedAndADeadOneReplacedByItsNextStart) {
  writeSettings("connectedMode = 1\n" + appTable("*"));
  startBoth();
  waitForBand();
  const auto secondDaemon = start({WRIXEL2D_PATH, "--band", "virtual", "--log", "stderr"});
  waitForExit(*secondDaemon, 1);
  EXPECT_TRUE(secondDaemon->hasLogged("wrixel2d: ")) << secondDaemon->errors();
  const auto secondCompanion = start({WRIXEL2_COMPANION_PATH, "--log", "stderr"});
  waitForExit(*secondCompanion, 1);
  EXPECT_TRUE(secondCompanion->hasLogged("wrixel2-companion: ")) << secondCompanion->errors();
  notify("Chat", "Chat", "still served");
  waitForText("Chat:still served");

  kill(companion_, kCompanionName);
  startCompanion();
  notify("Chat", "Chat", "new companion");
  waitForText("Chat:new companion");
  kill(daemon_, kDaemonName);
  startDaemon();
  waitUntilServed();
  notify("Chat", "Chat", "new daemon");
  waitForText("Chat:new daemon");
}

TEST_F(SessionTest, EndsCleanlyWhenToldAndWithAnErrorWhenTheBusIsGone) {
  writeSettings("");
  startBoth();
  for (const int number : {SIGTERM, SIGINT}) {
    for (Program* program : {daemon_.get(), companion_.get()}) {
      program->signal(number);
      waitForExit(*program, 0);
    }
    waitUntil("the names are free",
              [this] { return !hasOwner(kDaemonName) && !hasOwner(kCompanionName); });
    startBoth();
  }
  privateBus_.stop();
  for (Program* program : {daemon_.get(), companion_.get()}) {
    waitForExit(*program, 1);
    EXPECT_TRUE(program->hasLogged("ERROR")) << program->errors();
  }
}

TEST_F(SessionTest, ASystemBusThatSaysNothingHoldsNobodyUp) {
  const std::string path = directory_ / "silent";
  environment_["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + path;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const platform::linux::FileDescriptor silent(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(silent.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(silent.get(), 8), 0);
  std::vector<platform::linux::FileDescriptor> accepted;
  const auto startAndAsk = [&] {
    startCompanion();
    daemon_ = start({WRIXEL2D_PATH, "--log", "stderr"});
    waitUntil("the daemon", [this] { return hasOwner(kDaemonName); });
    for (const char* name : {kCompanionName, kDaemonName}) {
      SCOPED_TRACE(name);
      pollfd connecting{silent.get(), POLLIN, 0};
      ASSERT_EQ(::poll(&connecting, 1, 20'000), 1);
      accepted.emplace_back(::accept(silent.get(), nullptr, nullptr));
      bool isAnswered = false;
      const auto ping = bus_->newMethodCall({name, "/", "org.freedesktop.DBus.Peer"}, "Ping");
      const auto slot =
          bus_->callAsync(*ping, [&](const BusMessage& reply) { isAnswered = !reply.isError(); });
      waitUntil("an answer", [&] { return isAnswered; }, std::chrono::seconds(2));
    }
  };
  startAndAsk();
  for (Program* program : {daemon_.get(), companion_.get()}) {
    program->signal(SIGTERM);
    waitForExit(*program, 0, std::chrono::seconds(2));
  }
  // A real one in its place is used at once.
  startAndAsk();
  const platform::linux::PrivateBus system;
  std::filesystem::remove(path);
  std::filesystem::create_symlink(system.address().substr(10, system.address().find(',') - 10),
                                  path);
  waitUntil("the system bus is used",
            [this] { return daemon_->hasLogged("nobody has the bus name org.bluez"); });
}

TEST_F(SessionTest, CompanionAndBandViewHaveTheirExitStatusAndOneLine) {
  const std::string kCompanion = WRIXEL2_COMPANION_PATH;
  const std::string kView = WRIXEL2_BANDVIEW_PATH;
  const struct {
    std::vector<std::string> words;
    int status;
    bool hasBus = true;
  } kCases[] = {
      {{kCompanion, "--help"}, 0, false},
      {{kCompanion, "--version"}, 0, false},
      {{kCompanion, "--no-such-option"}, 2},
      {{kCompanion, "stray"}, 2},
      {{kCompanion, "--log", "paper"}, 2},
      {{kCompanion, "--config", "/nonexistent/settings.toml"}, 1},
      {{kCompanion}, 1, false},
      {{kView, "--help"}, 0, false},
      {{kView, "--version"}, 0, false},
      {{kView, "--no-such-option"}, 2},
      {{kView, "stray"}, 2},
      {{kView}, 1},  // there is no terminal
      {{kView, "--once"}, 1, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.words.front() + " " + c.words.back());
    environment_["DBUS_SESSION_BUS_ADDRESS"] =
        c.hasBus ? privateBus_.address() : "unix:path=/nonexistent";
    const auto program = start(c.words);
    waitForExit(*program, c.status);
    EXPECT_EQ(program->output().empty(), c.status != 0) << program->output();
    EXPECT_EQ(program->timesLogged("\n"), c.status == 0 ? 0 : 1) << program->errors();
  }
}

}  // namespace
}  // namespace wrixel2::integration
