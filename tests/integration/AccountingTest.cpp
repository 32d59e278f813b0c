#include <csignal>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SessionTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {
namespace {

/// What became of one notification, as the logs of all programs that ran have it.
struct Fate {
  int forwarded = 0;
  int notForwarded = 0;
  int dropped = 0;
};

/// Many apps notify once each, while both programs are killed and started again. An app's name is
/// in the log, and so says what became of its notification.
class SlowAccountingTest : public SessionTest {
 protected:
  static std::string appNumber(int number) { return "app-" + std::to_string(number) + "-"; }

  void send(int count) {
    for (int i = 0; i < count; ++i) {
      notify(appNumber(sent_++), "Title", "Text");
    }
  }
  /// As a crash does; what the program logged is kept.
  void kill(std::unique_ptr<Program>& program, const char* name) {
    program->signal(SIGKILL);
    waitForExit(*program, 128 + SIGKILL);
    waitUntil("the name is free", [this, name] { return !hasOwner(name); });
    logs_ += program->errors();
    program.reset();
  }
  void killDaemon() {
    kill(daemon_, "org.corvale.wrixel2dIpc");
    ++daemonsKilled_;
  }
  void killCompanion() { kill(companion_, "org.corvale.wrixel2Ipc"); }
  /// Until the notification of an app that notifies last has come out at the other end.
  void waitUntilAllHandedOn() {
    const std::string last = appNumber(sent_);
    send(1);
    waitUntil("the last notification is handed on",
              [&] { return daemon_->hasLogged("#Forwaring: " + last); });
  }

  std::string allLogs() const {
    return logs_ + (daemon_ ? daemon_->errors() : "") + (companion_ ? companion_->errors() : "");
  }
  /// By the app's number.
  std::map<int, Fate> fates() const {
    std::map<int, Fate> fates;
    const std::string logs = allLogs();
    const auto count = [&](const std::string& before, int Fate::* member) {
      const std::string start = before + "app-";
      for (std::size_t at = logs.find(start); at != std::string::npos;
           at = logs.find(start, at + start.size())) {
        ++(fates[std::stoi(logs.substr(at + start.size()))].*member);
      }
    };
    count("#Forwaring: ", &Fate::forwarded);
    count("Not forwarding ", &Fate::notForwarded);
    count("Dropped a notification of ", &Fate::dropped);
    return fates;
  }

  std::string logs_;
  int sent_ = 0;
  int daemonsKilled_ = 0;
};

TEST_F(SlowAccountingTest, EveryNotificationIsAccountedFor) {
  constexpr int kNotifications = 1000;
  constexpr int kBurst = 25;
  writeSettings("");
  startBoth();
  std::vector<bool> isUnseen(2 * kNotifications, false);
  for (int round = 0; sent_ < kNotifications; ++round) {
    SCOPED_TRACE(round);
    send(kBurst);
    switch (round % 8) {
      case 1:  // in the middle of a burst
        killDaemon();
        send(kBurst);
        startDaemon();
        break;
      case 3:  // for longer than all can wait
        killDaemon();
        for (int i = 0; i < 12; ++i) {
          send(kBurst);
        }
        waitUntil("too many wait", [this] { return companion_->hasLogged("dropped so far"); });
        startDaemon();
        break;
      case 5: {
        // Nothing waits in the companion, and what is sent while there is none is not seen.
        waitUntilAllHandedOn();
        killCompanion();
        const int first = sent_;
        send(kBurst);
        for (int i = first; i < sent_; ++i) {
          isUnseen[static_cast<std::size_t>(i)] = true;
        }
        startCompanion();
        break;
      }
      case 7:
        waitUntilAllHandedOn();
        break;
      default:
        break;
    }
  }
  waitUntilAllHandedOn();

  int forwarded = 0;
  int dropped = 0;
  int lost = 0;
  auto all = fates();
  for (int i = 0; i < sent_; ++i) {
    const Fate& fate = all[i];
    const int total = fate.forwarded + fate.notForwarded + fate.dropped;
    EXPECT_LE(total, 1) << "more than once: " << i;
    forwarded += fate.forwarded;
    dropped += fate.dropped;
    lost += total == 0 && !isUnseen[static_cast<std::size_t>(i)] ? 1 : 0;
    EXPECT_TRUE(total == 0 || !isUnseen[static_cast<std::size_t>(i)]) << i;
  }
  // A daemon answers before it acts: what it had just answered goes with it, one at most.
  EXPECT_LE(lost, daemonsKilled_);
  EXPECT_GE(daemonsKilled_, 4);
  EXPECT_GT(dropped, 0) << "more than can wait have been sent";
  EXPECT_GT(forwarded, kNotifications / 2);
  EXPECT_NE(allLogs().find("(" + std::to_string(1) + " dropped so far)"), std::string::npos);
}

TEST_F(SessionTest, TheCompanionShowsWhatItKnows) {
  const auto property = [this](const char* name) {
    return bus_->getProperty(
        {"org.corvale.wrixel2Ipc", "/org/corvale/wrixel2Ipc", "org.corvale.wrixel2.Companion"},
        name);
  };
  writeSettings("onlyLocked = true\n");
  startBoth();
  notify("Chat", "Title", "Text", {{"desktop-entry", "org.example.Chat"}});
  waitUntil("the line", [this] {
    return daemon_->hasLogged("Not forwarding org.example.Chat: the phone is not locked");
  });
  const auto apps = property("Apps");
  ASSERT_TRUE(apps) << apps.error().localizedDescription;
  ASSERT_EQ(apps->array()->size(), 1U);
  const Dictionary app = *apps->array()->front().dictionary();
  EXPECT_EQ(app.at("id"), platform::Value("org.example.Chat"));
  EXPECT_EQ(app.at("name"), platform::Value("Chat"));
  EXPECT_EQ(app.at("count"), platform::Value(1));
  EXPECT_EQ(property("DoNotDisturb").value(), platform::Value(false));
  EXPECT_EQ(property("Locked").value(), platform::Value(false));
  EXPECT_EQ(property("SettingsProblem").value(), platform::Value(""));
  writeSettings("mode = 1\n[apps\n");
  const std::string problem = (directory_ / "config/wrixel2/settings.toml").string() + ":2: ";
  waitUntil("the problem shows", [&] {
    const auto value = property("SettingsProblem");
    return value && value->text()->starts_with(problem);
  });
}

TEST_F(SessionTest, AnAlarmThatIsStoppedOnThePhoneStopsOnTheBand) {
  const auto& service = platform::linux::kNotificationService;
  const auto served = platform::linux::serveNotifications(*bus_, [](const Array&) { return 42; });
  ASSERT_TRUE(served);
  writeSettings("connectedMode = 1\n");
  startBoth();
  waitForBand();
  auto app = BusConnection::openAddress(loop_, busAddress_);
  ASSERT_TRUE(app);
  const auto ring =
      (*app)->newMethodCall(service, "Notify", "susssasa{sv}i",
                            {"Clocks", 0, "", "Wake up", "07:00",
                             Array{"app.stop-alarm::1", "Stop", "app.snooze-alarm::1", "Snooze"},
                             Dictionary{{"desktop-entry", "org.gnome.clocks"}}, 0});
  ASSERT_TRUE(ring);
  bool isShown = false;
  const auto pending = (*app)->callAsync(*ring, [&isShown](const BusMessage&) { isShown = true; });
  waitUntil("the alarm rings", [&] { return isShown && hasShown({0xFA, 0x01, 0x0A}); });
  events_.clear();
  bus_->emitSignal(service.path, service.interface, "NotificationClosed", "uu", {42, 2});
  waitUntil("the band is stopped", [this] {
    for (const BandEvent& event : events_) {
      if (event.kind == "Vibrated" && event.arguments[2].intValue() == 0) {
        return true;
      }
    }
    return false;
  });
}

}  // namespace
}  // namespace wrixel2::integration
