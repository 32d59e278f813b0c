#include "SessionTest.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {

namespace {

using platform::linux::BusAddress;

const BusAddress kDaemon{"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc",
                         "org.corvale.wrixel2dIpc"};
const BusAddress kBand{"org.corvale.wrixel2.VirtualBand", "/org/corvale/wrixel2/VirtualBand",
                       "org.corvale.wrixel2.VirtualBand"};

void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  // As editors do: beside the old one, and then in its place.
  const std::filesystem::path fresh = path.string() + ".new";
  std::ofstream(fresh) << text;
  std::filesystem::rename(fresh, path);
}

/// A bus for everybody that starts no programs by itself.
std::string busConfiguration(const std::filesystem::path& socket) {
  return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\""
         " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
         "<busconfig><type>session</type><listen>unix:path=" +
         socket.string() +
         "</listen><policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
         "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>";
}

std::string propertyList(const std::string& key, const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>" + key +
         "</key><string>" + value + "</string></dict></plist>";
}

}  // namespace

SessionTest::SessionTest() {
  std::string path = std::filesystem::temp_directory_path() / "wrixel2-test.XXXXXX";
  directory_ = ::mkdtemp(path.data());
  for (const char* name : {"config", "data", "state", "runtime"}) {
    std::filesystem::create_directories(directory_ / name);
  }
  busAddress_ = "unix:path=" + (directory_ / "bus").string();
  environment_ = {
      {"PATH", std::getenv("PATH")},
      {"HOME", directory_},
      {"XDG_CONFIG_HOME", directory_ / "config"},
      {"XDG_DATA_HOME", directory_ / "data"},
      {"XDG_STATE_HOME", directory_ / "state"},
      {"XDG_RUNTIME_DIR", directory_ / "runtime"},
      {"DBUS_SESSION_BUS_ADDRESS", busAddress_},
      // The machine's own lock and calls are none of a test's business.
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (directory_ / "no-system-bus").string()},
  };
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) {
      environment_[name] = value;
    }
  }
}

SessionTest::~SessionTest() {
  if (HasFailure()) {
    for (const auto& [name, program] :
         {std::pair("daemon", daemon_.get()), std::pair("companion", companion_.get())}) {
      if (program != nullptr) {
        std::fprintf(stderr, "--- the %s wrote:\n%s", name, program->errors().c_str());
      }
    }
  }
  daemon_.reset();
  companion_.reset();
  bus_.reset();
  busDaemon_.reset();
  std::filesystem::remove_all(directory_);
}

void SessionTest::SetUp() {
  const std::filesystem::path configuration = directory_ / "bus.conf";
  std::ofstream(configuration) << busConfiguration(directory_ / "bus");
  busDaemon_ = start(
      {"dbus-daemon", "--config-file=" + configuration.string(), "--nofork", "--print-address=1"});
  waitUntil("the message bus", [this] { return busDaemon_->output().ends_with("\n"); });
  auto opened = BusConnection::openAddress(loop_, busAddress_);
  ASSERT_TRUE(opened) << opened.error().localizedDescription;
  bus_ = std::move(*opened);

  // Whatever a test waits for on the bus wakes the loop by one of these.
  for (const char* rule : {
           "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'",
           "type='signal',interface='org.freedesktop.DBus.Properties'",
       }) {
    auto match = bus_->addMatch(rule, [](const BusMessage&) {});
    ASSERT_TRUE(match);
    match->detach();
  }
  auto events = bus_->addMatch(
      "type='signal',interface='org.corvale.wrixel2.VirtualBand'",
      [this](const BusMessage& message) {
        events_.push_back({std::string(message.member()), message.arguments().value()});
      });
  ASSERT_TRUE(events);
  events->detach();
  auto postings = bus_->addMatch("type='signal',interface='org.corvale.NotifyCenter'",
                                 [this](const BusMessage& message) {
                                   postings_.push_back(*message.arguments().value().front().text());
                                 });
  ASSERT_TRUE(postings);
  postings->detach();
  writePairingKey(kBandsKey);
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

std::unique_ptr<Program> SessionTest::startWithoutWaiting(const std::string& path,
                                                          std::vector<std::string> options) {
  options.insert(options.begin(), path);
  return start(options);
}

void SessionTest::startDaemon(std::vector<std::string> options) {
  options.insert(options.end(), {"--band", "virtual", "--log", "stderr"});
  daemon_ = startWithoutWaiting(WRIXEL2D_PATH, std::move(options));
  waitUntil("the daemon's band", [this] { return hasOwner(kBand.destination); });
}

void SessionTest::startCompanion() {
  companion_ = startWithoutWaiting(WRIXEL2_COMPANION_PATH, {"--log", "stderr"});
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
    const auto initialized = bus_->getProperty(
        {kDaemon.destination, kDaemon.path, "org.corvale.wrixel2d.Status"}, "Initialized");
    return initialized && initialized->boolValue();
  });
}

void SessionTest::stopBus() { busDaemon_->signal(SIGKILL); }

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

void SessionTest::post(const std::string& name) const {
  EXPECT_EQ(bus_->emitSignal("/org/corvale/NotifyCenter", "org.corvale.NotifyCenter", "Posted", "s",
                             {name}),
            std::nullopt);
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

std::string SessionTest::bandLink() const {
  const auto link = bus_->getProperty(kBand, "Link");
  return link && link->text() != nullptr ? *link->text() : "";
}

void SessionTest::waitUntil(const std::string& what, const std::function<bool()>& condition,
                            platform::TimeInterval limit) {
  ASSERT_TRUE(loop_.runUntil(condition, limit)) << "this did not happen: " << what;
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

bool SessionTest::has(const std::string& kind) const {
  return std::any_of(events_.begin(), events_.end(),
                     [&kind](const BandEvent& event) { return event.kind == kind; });
}

}  // namespace wrixel2::integration
