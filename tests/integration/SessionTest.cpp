#include "SessionTest.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {

namespace {

const platform::linux::BusAddress kDaemon{kDaemonName, "/org/corvale/wrixel2dIpc", kDaemonName};

void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  // As editors do: beside the old one, and then in its place.
  const std::filesystem::path fresh = path.string() + ".new";
  std::ofstream(fresh) << text;
  std::filesystem::rename(fresh, path);
}

std::string propertyList(const std::string& key, const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>" + key +
         "</key><string>" + value + "</string></dict></plist>";
}

}  // namespace

SessionTest::SessionTest() {
  for (const char* name : {"config", "data", "state", "runtime"}) {
    std::filesystem::create_directories(directory_ / name);
  }
  environment_ = {
      {"PATH", std::getenv("PATH")},
      {"HOME", directory_},
      {"XDG_CONFIG_HOME", directory_ / "config"},
      {"XDG_DATA_HOME", directory_ / "data"},
      {"XDG_STATE_HOME", directory_ / "state"},
      {"XDG_RUNTIME_DIR", directory_ / "runtime"},
      {"DBUS_SESSION_BUS_ADDRESS", privateBus_.address()},
      // The machine's own lock and calls are none of a test's business.
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (directory_ / "no-system-bus").string()},
  };
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) {
      environment_[name] = value;
    }
  }
}

void SessionTest::TearDown() {
  for (const auto& [name, program] :
       {std::pair("daemon", daemon_.get()), std::pair("companion", companion_.get())}) {
    if (program != nullptr && !program->status()) {
      program->signal(SIGTERM);
      waitForExit(*program, 0);
    }
    if (program != nullptr && HasFailure()) {
      std::fprintf(stderr, "--- the %s wrote:\n%s", name, program->errors().c_str());
    }
  }
}

void SessionTest::SetUp() {
  auto opened = BusConnection::openAddress(loop_, privateBus_.address());
  ASSERT_TRUE(opened) << opened.error().localizedDescription;
  bus_ = std::move(*opened);

  // Whatever a test waits for on the bus wakes the loop by one of these.
  match("sender='org.freedesktop.DBus',member='NameOwnerChanged'", [](const BusMessage&) {});
  match("interface='org.freedesktop.DBus.Properties'", [](const BusMessage&) {});
  match("interface='org.corvale.wrixel2.VirtualBand'", [this](const BusMessage& message) {
    events_.push_back({std::string(message.member()), message.arguments().value()});
  });
  match("interface='org.corvale.NotifyCenter'", [this](const BusMessage& message) {
    postings_.push_back(*message.arguments().value().front().text());
  });
  writePairingKey(kBandsKey);
}

void SessionTest::match(const std::string& rule, BusConnection::Callback received) const {
  auto slot = bus_->addMatch("type='signal'," + rule, std::move(received));
  ASSERT_TRUE(slot);
  slot->detach();
}

void SessionTest::serveAlerts() {
  auto served = platform::linux::serveNotifications(*bus_, [this](const Array& arguments) {
    alerts_.push_back(*arguments[3].text() + ": " + *arguments[4].text());
    return 1;
  });
  ASSERT_TRUE(served);
  served->detach();
}

void SessionTest::writeSettings(const std::string& text) const {
  writeFile(directory_ / "config/wrixel2/settings.toml", text);
}

void SessionTest::writePairingKey(const std::string& key) const {
  const auto preferences = directory_ / "data/wrixel2/MiFit/Library/Preferences";
  writeFile(preferences / "HM.wristband.plist", propertyList("userid", "1234567890"));
  writeFile(preferences / "1234567890/BandInfoConfigStore.plist",
            propertyList("band_bind_auth_key", key));
}

std::unique_ptr<Program> SessionTest::start(const std::vector<std::string>& arguments) {
  return std::make_unique<Program>(loop_, arguments, environment_);
}

void SessionTest::startDaemon() {
  daemon_ = start({WRIXEL2D_PATH, "--band", "virtual", "--log", "stderr"});
  waitUntil("the daemon's band", [this] { return hasOwner(kBand.destination); });
}

void SessionTest::startCompanion() {
  companion_ = start({WRIXEL2_COMPANION_PATH, "--log", "stderr"});
  waitUntil("the companion", [this] { return hasOwner("org.corvale.wrixel2Ipc"); });
}

void SessionTest::startBoth() {
  startDaemon();
  startCompanion();
  waitUntilServed();
}

void SessionTest::waitUntilServed() {
  waitUntil("the radio", [this] {
    return daemon_->hasLogged("Central manager status has changed -> PoweredOn");
  });
}

void SessionTest::waitForBand() {
  waitUntil("the first connection", [this] {
    const auto initialized = bus_->getProperty(kStatus, "Initialized");
    return initialized && initialized->boolValue();
  });
}

bool SessionTest::hasOwner(const std::string& name) const {
  const auto owned = bus_->nameHasOwner(name);
  return owned && *owned;
}

void SessionTest::tell(const std::string& message, const Dictionary& userInfo) const {
  const auto call = bus_->newMethodCall(kDaemon, message, "a{sv}", {userInfo});
  ASSERT_TRUE(call);
  const auto reply = bus_->call(*call);
  ASSERT_TRUE(reply) << reply.error().localizedDescription;
  EXPECT_EQ(reply->signature(), "a{sv}");
}

void SessionTest::bulletin(const std::string& app, const std::string& title,
                           const std::string& message) const {
  tell("bulletinRequest", {{"sectionID", app}, {"title", title}, {"message", message}});
}

platform::Result<BusMessage> SessionTest::callPost(const BusConnection& from,
                                                   const std::string& signature,
                                                   const Array& arguments) {
  const std::string center =
      arguments.size() == 1 ? "NotifyCenter" : "DistributedNotificationCenter";
  const auto call =
      from.newMethodCall({kDaemonName, "/org/corvale/" + center, "org.corvale." + center}, "Post",
                         signature, arguments);
  return from.call(*call);
}

void SessionTest::post(const std::string& name) const {
  const auto reply = callPost(*bus_, "s", {name});
  EXPECT_TRUE(reply) << reply.error().localizedDescription;
}

void SessionTest::notify(const std::string& app, const std::string& summary,
                         const std::string& body, const Dictionary& hints) const {
  auto call = bus_->newMethodCall(platform::linux::kNotificationService, "Notify", "susssasa{sv}i",
                                  {app, 0, "", summary, body, Array{}, hints, -1});
  ASSERT_TRUE(call);
  call->setExpectsReply(false);
  EXPECT_EQ(bus_->send(*call), std::nullopt);
}

void SessionTest::callBand(const std::string& method, const std::string& signature,
                           const Array& arguments) const {
  const auto call = bus_->newMethodCall(kBand, method, signature, arguments);
  ASSERT_TRUE(call);
  const auto reply = bus_->call(*call);
  ASSERT_TRUE(reply) << reply.error().localizedDescription;
}

void SessionTest::setBandProperty(const std::string& name, const std::string& signature,
                                  const platform::Value& value) const {
  EXPECT_EQ(bus_->setProperty(kBand, name, signature, value), std::nullopt);
}

void SessionTest::waitUntil(const std::string& what, const std::function<bool()>& condition,
                            platform::TimeInterval limit) {
  ASSERT_TRUE(loop_.runUntil(condition, limit)) << "this did not happen: " << what;
}

void SessionTest::kill(std::unique_ptr<Program>& program, const std::string& name) {
  program->signal(SIGKILL);
  waitForExit(*program, 128 + SIGKILL);
  waitUntil("the name is free", [this, &name] { return !hasOwner(name); });
}

void SessionTest::waitForExit(Program& program, int status, platform::TimeInterval limit) {
  waitUntil("a program's end", [&program] { return program.status().has_value(); }, limit);
  EXPECT_EQ(program.status(), status) << program.errors();
}

void SessionTest::waitForText(const std::string& text) {
  waitUntil("the band shows " + text, [this, &text] {
    const auto texts = shownTexts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  });
}

void SessionTest::waitForPosting(const std::string& name) {
  waitUntil("the posting of " + name, [this, &name] { return std::erase(postings_, name) > 0; });
}

std::vector<std::string> SessionTest::shownTexts() const {
  std::vector<std::string> texts;
  for (const BandEvent& event : events_) {
    if (event.kind == "Displayed" && !event.arguments[0].text()->empty()) {
      texts.push_back(*event.arguments[0].text());
    }
  }
  return texts;
}

bool SessionTest::hasShown(const Bytes& icon) const {
  return std::any_of(events_.begin(), events_.end(), [&icon](const BandEvent& event) {
    return event.kind == "Displayed" && *event.arguments[1].data() == icon;
  });
}

bool SessionTest::isStopped() const {
  return std::any_of(events_.begin(), events_.end(), [](const BandEvent& event) {
    return event.kind == "Vibrated" && event.arguments[2].intValue() == 0;
  });
}

bool SessionTest::has(const std::string& kind) const {
  return std::any_of(events_.begin(), events_.end(),
                     [&kind](const BandEvent& event) { return event.kind == kind; });
}

}  // namespace wrixel2::integration
