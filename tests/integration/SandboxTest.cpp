#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SessionTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {
namespace {

/// Beside everything else an app in a sandbox, whose bus filter allows it to notify, and no more.
class SandboxTest : public SessionTest {
 protected:
  static constexpr const char* kMeasured = "org.corvale.wrixel2.measure";

  void SetUp() override {
    SessionTest::SetUp();
    serveAlerts();
    match("interface='org.corvale.DistributedNotificationCenter'",
          [this](const BusMessage& message) {
            postings_.push_back(*message.arguments().value().front().text());
          });
    const std::string socket = directory_ / "filtered";
    filter_ = start({"xdg-dbus-proxy", "--fd=1", privateBus_.address(), socket, "--filter",
                     "--talk=" + platform::linux::kNotificationService.destination});
    waitUntil("the filter is there", [this] { return !filter_->output().empty(); });
    filtered_ = environment_;
    filtered_["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + socket;
  }
  /// As the app in the sandbox does it, and as a program beside it.
  void broadcast(const std::string& center, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"gdbus", "emit", "--session",
                                   "--object-path=/org/corvale/" + center,
                                   "--signal=org.corvale." + center + ".Posted"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    for (const auto& environment : {filtered_, environment_}) {
      Program gdbus(loop_, words, environment);
      waitForExit(gdbus, 0);
      waitForPosting(arguments.front());
    }
  }
  void callFromSandbox(const std::string& service, const std::string& path,
                       const std::string& method, const std::vector<std::string>& arguments,
                       int status) {
    std::vector<std::string> words{"gdbus",
                                   "call",
                                   "--session",
                                   "--dest=" + service,
                                   "--object-path=" + path,
                                   "--method=" + method};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Program gdbus(loop_, words, filtered_);
    waitForExit(gdbus, status);
  }
  bool isMeasuring() const {
    return std::any_of(events_.begin(), events_.end(), [](const BandEvent& event) {
      return event.kind == "Written" && *event.arguments[2].data() == Bytes{0x15, 0x02, 0x01};
    });
  }
  std::string lockedTo() const {
    const auto property = bus_->getProperty(kStatus, "LockedTo");
    return property ? *property->text() : "";
  }

  std::unique_ptr<Program> filter_;
  Program::Environment filtered_;
};

TEST_F(SandboxTest, NobodyButTheCompanionSteersTheDaemonBySignals) {
  writeSettings(
      "connectedMode = 1\nonlyLocked = true\n[apps.Chat]\nicon = 29\nrepeat = 0\npattern = 4\n"
      "preview = true\n");
  startBoth();
  waitForBand();
  setBandProperty("HeartRate", "y", 72);
  // The owner's programs do, by method.
  for (const char* name : {"com.apple.springboard.lockcomplete", "com.apple.springboard.lockstate",
                           "org.corvale.wrixel2.lockToCurrentBand"}) {
    post(name);
  }
  waitUntil("the lock", [this] { return !lockedTo().empty(); });

  events_.clear();
  postings_.clear();
  for (const char* name : {"com.apple.springboard.lockstate", "org.corvale.wrixel2.removeLock",
                           "org.corvale.wrixel2prefs.preferencechanged/measure"}) {
    broadcast("NotifyCenter", {name});
    callFromSandbox(kDaemonName, "/org/corvale/NotifyCenter", "org.corvale.NotifyCenter.Post",
                    {name}, 1);
  }
  // What the app may do comes after what it may not, and only while the phone is locked.
  const auto& service = platform::linux::kNotificationService;
  callFromSandbox(service.destination, service.path, service.interface + ".Notify",
                  {"Chat", "0", "", "Anna", "Hi", "[]", "{}", "5000"}, 0);
  waitForText("Anna:Hi");
  EXPECT_NE(lockedTo(), "");
  EXPECT_FALSE(isMeasuring());
  EXPECT_FALSE(daemon_->hasLogged("SdBus")) << "they are dropped without a line";

  // Nor is a heart rate believed that the daemon has not measured, which takes eight seconds.
  const auto measuring = start({WRIXEL2CTL_PATH, "measure"});
  waitUntil("the band measures", [this] { return isMeasuring(); });
  broadcast("DistributedNotificationCenter", {kMeasured, "", "{'heartRate': <222>}"});
  waitForExit(*measuring, 0);
  EXPECT_EQ(measuring->output(), "72 bpm\n");
}

TEST_F(SandboxTest, APostingIsAcceptedIfTheDaemonEverObservesItsName) {
  startDaemon();
  for (const char* name : {"org.corvale.wrixel2.capReq", "org.corvale.wrixel2.devUnlocked"}) {
    EXPECT_TRUE(callPost(*bus_, "ssa{sv}", {name, "", Dictionary{}})) << "of no effect as yet";
  }
  EXPECT_TRUE(callPost(*bus_, "s", {"org.corvale.wrixel2.syncClock"}));
  for (const auto& refused :
       {callPost(*bus_, "s", {"org.corvale.wrixel2.capReq"}), callPost(*bus_, "s", {""}),
        callPost(*bus_, "ssa{sv}", {"org.corvale.wrixel2.syncClock", "", Dictionary{}}),
        callPost(*bus_, "ssa{sv}", {"org.corvale.wrixel2.capabilities", "", Dictionary{}})}) {
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().localizedDescription.find("Error.InvalidArgs"), std::string::npos)
        << refused.error().localizedDescription;
  }
}

}  // namespace
}  // namespace wrixel2::integration
