#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "SessionTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {
namespace {

using Alert = std::pair<std::string, std::string>;

const platform::linux::BusAddress kStatus{"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc",
                                          "org.corvale.wrixel2d.Status"};
const platform::linux::BusAddress kVirtualBand{"org.corvale.wrixel2.VirtualBand",
                                               "/org/corvale/wrixel2/VirtualBand",
                                               "org.corvale.wrixel2.VirtualBand"};
constexpr const char* kDistributedPath = "/org/corvale/DistributedNotificationCenter";
constexpr const char* kDistributedInterface = "org.corvale.DistributedNotificationCenter";

constexpr const char* kHeartRateControl = "00002a39-";
constexpr const char* kCurrentTime = "00002a2b-";
const Bytes kMeasureOnce = {0x15, 0x02, 0x01};
const Bytes kMeasureAlways = {0x15, 0x01, 0x01};

constexpr const char* kStaysConnected = "connectedMode = 1\n";

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// What a request to the band brings about, seen from every side: the desktop that shows alerts,
/// the observers of notifications and properties, the band, and the readers of stored data.
class RequestsTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    serveAlerts();
    auto posted = bus_->addMatch(
        std::string("type='signal',interface='") + kDistributedInterface + "'",
        [this](const BusMessage& message) {
          const Array arguments = message.arguments().value();
          distributed_.emplace_back(*arguments[0].text(), *arguments[2].dictionary());
        });
    ASSERT_TRUE(posted);
    posted->detach();
    auto changed = bus_->addMatch(
        "type='signal',interface='org.freedesktop.DBus.Properties',path='" + kStatus.path + "'",
        [this](const BusMessage& message) {
          const Array arguments = message.arguments().value();
          for (const auto& [name, value] : *arguments[1].dictionary()) {
            announced_.insert_or_assign(name, value);
          }
        });
    ASSERT_TRUE(changed);
    changed->detach();
  }

  /// The band's first values are known: everything it tells of its own accord is listened to.
  void waitForFirstValues() {
    waitUntil("the band is ready and its battery known", [this] {
      return platform::boolForKey(announced_, "Initialized") &&
             platform::intForKey(announced_, "Battery") != 0;
    });
  }

  void waitForAlert(const Alert& alert) {
    waitUntil("the alert " + alert.first + ": " + alert.second, [this, &alert] {
      return std::find(alerts_.begin(), alerts_.end(), alert) != alerts_.end();
    });
  }

  /// The user infos posted under the name, in order.
  std::vector<Dictionary> distributed(const std::string& name) const {
    std::vector<Dictionary> found;
    for (const auto& [postedName, userInfo] : distributed_) {
      if (postedName == name) {
        found.push_back(userInfo);
      }
    }
    return found;
  }

  /// What was written to the characteristic, in order.
  std::vector<Bytes> written(const std::string& characteristic) const {
    std::vector<Bytes> values;
    for (const BandEvent& event : events_) {
      if (event.kind == "Written" &&
          lowerCase(*event.arguments[1].text()).starts_with(characteristic)) {
        values.push_back(*event.arguments[2].data());
      }
    }
    return values;
  }

  Bytes clockOfBand() const {
    const auto clock = bus_->getProperty(kVirtualBand, "Clock");
    return clock && clock->data() != nullptr ? *clock->data() : Bytes{};
  }

  /// Every stored sample, oldest first, as any other program reads them.
  std::string storedSamples() const {
    sqlite3* database = nullptr;
    const std::string path = directory_ / "data/wrixel2/health.sqlite";
    sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    std::string rows;
    sqlite3_exec(
        database, "SELECT value || ' ' || unit || ';' FROM sample ORDER BY id",
        [](void* out, int, char** values, char**) {
          *static_cast<std::string*>(out) += values[0];
          return 0;
        },
        &rows, nullptr);
    sqlite3_close_v2(database);
    return rows;
  }

  std::filesystem::path lockFile() const {
    return directory_ / "state/wrixel2/org.corvale.wrixel2.lock.plist";
  }

  std::vector<Alert> alerts_;
  std::vector<std::pair<std::string, Dictionary>> distributed_;
  /// The status as those see it who only listen for its changes.
  Dictionary announced_;

 private:
  /// The test is the desktop.
  void serveAlerts() {
    auto served = platform::linux::serveNotifications(*bus_, [this](const Array& arguments) {
      alerts_.emplace_back(*arguments[3].text(), *arguments[4].text());
      return 1;
    });
    ASSERT_TRUE(served);
    served->detach();
  }
};

TEST_F(RequestsTest, AHeartRateIsMeasuredOnDemandAndAFailedReadingOnceMore) {
  writeSettings(kStaysConnected);
  startBoth();
  waitForFirstValues();
  setBandProperty("HeartRate", "y", 0);
  post("org.corvale.wrixel2prefs.preferencechanged/measure");
  waitForAlert({"Heart Rate", "Your Heart Rate: 0"});
  EXPECT_EQ(written(kHeartRateControl), std::vector<Bytes>{kMeasureOnce});

  setBandProperty("HeartRate", "y", 72);
  waitUntil("it is measured once more, unasked",
            [this] { return written(kHeartRateControl).size() == 2; });
  EXPECT_EQ(storedSamples(), "");
  // The owner was shown the failed reading; only who asks again is shown another.
  post("org.corvale.wrixel2prefs.preferencechanged/measure");
  waitForAlert({"Heart Rate", "Your Heart Rate: 72"});
  EXPECT_EQ(alerts_.size(), 2U);
  EXPECT_EQ(written(kHeartRateControl), (std::vector<Bytes>(3, kMeasureOnce)));
  EXPECT_EQ(distributed("org.corvale.wrixel2.measure"),
            (std::vector<Dictionary>{{{"heartRate", 0}}, {{"heartRate", 72}}}));
  EXPECT_EQ(storedSamples(), "72.0 count/min;");
}

TEST_F(RequestsTest, CountersAndBatteryAreReportedAndTheStatusFollows) {
  writeSettings(kStaysConnected);
  startDaemon();
  setBandProperty("BatteryLevel", "y", 63);
  startCompanion();
  waitForFirstValues();
  setBandProperty("Steps", "u", 4321);
  setBandProperty("Distance", "u", 2500);
  setBandProperty("Calories", "u", 99);
  const std::string report = "org.corvale.wrixel2.capabilities";
  const Dictionary expected{{"isHealtKitSupported", true},
                            {"batteryStatus", "63% "},
                            {"currentSteps", "4321 "},
                            {"currentDistance", "2500m "},
                            {"currentCalories", "99 "}};
  // Each change is reported by itself, in order: after the last one no other is on its way.
  waitUntil("the last change is reported", [&] {
    const auto reports = distributed(report);
    return !reports.empty() && reports.back() == expected;
  });
  waitUntil("the status follows",
            [this] { return platform::intForKey(announced_, "Steps") == 4321; });

  distributed_.clear();
  EXPECT_EQ(bus_->emitSignal(kDistributedPath, kDistributedInterface, "Posted", "ssa{sv}",
                             {"org.corvale.wrixel2.capReq", "", Dictionary{}}),
            std::nullopt);
  waitUntil("the report", [&] { return !distributed(report).empty(); });
  EXPECT_EQ(distributed(report), std::vector<Dictionary>{expected});

  const auto address = bus_->getProperty(kVirtualBand, "Address");
  ASSERT_TRUE(address);
  const auto status = bus_->getAllProperties(kStatus);
  ASSERT_TRUE(status);
  const Dictionary now{{"State", "connected"}, {"Band", *address},
                       {"Initialized", true},  {"LockedTo", ""},
                       {"Battery", 63},        {"Steps", 4321},
                       {"NextMeasurement", 0}, {"NextStepCheck", 0},
                       {"Problem", ""},        {"Authentication", "accepted"}};
  EXPECT_EQ(*status, now);
  for (const auto& [name, value] : announced_) {
    EXPECT_EQ(value, now.at(name)) << name << " was announced otherwise than it is";
  }
}

TEST_F(RequestsTest, TheBandsClockIsTheStopwatch) {
  // A zone that neither GMT nor whole hours pass for.
  environment_["TZ"] = "HERE-5:30";
  constexpr int kOffset = (5 * 60 + 30) * 60;
  writeSettings(kStaysConnected);
  startBoth();
  waitForFirstValues();
  writeSettings(std::string(kStaysConnected) + "stopwatchSwitch = true\n");
  waitForAlert({"Stopwatch started", "Let's start!"});
  waitUntil("the clock is set", [this] { return written(kCurrentTime).size() == 1; });
  Bytes clock = clockOfBand();
  ASSERT_EQ(clock.size(), 11U);
  EXPECT_EQ(Bytes(clock.begin() + 4, clock.begin() + 6), (Bytes{0, 0}));
  EXPECT_GE(clock[6], 1);
  EXPECT_LT(clock[6], 20);

  writeSettings(std::string(kStaysConnected) + "stopwatchSwitch = false\n");
  waitUntil("the clock is set right", [this] { return written(kCurrentTime).size() == 2; });
  waitUntil("the elapsed time is shown", [this] { return alerts_.size() == 2; });
  ASSERT_EQ(alerts_.size(), 2U);
  EXPECT_EQ(alerts_.back().first, "Stopwatch stopped");
  const std::string elapsed = alerts_.back().second;
  EXPECT_TRUE(elapsed.size() == 8 && elapsed.starts_with("00:00:") && elapsed < "00:00:20")
      << elapsed;
  EXPECT_EQ(distributed("org.corvale.wrixel2.stopwatch"),
            (std::vector<Dictionary>{Dictionary{{"timeDifference", elapsed}}}));

  clock = clockOfBand();
  ASSERT_EQ(clock.size(), 11U);
  const platform::FixedTimeZone zone(kOffset);
  const auto shown = platform::dateFromComponents(
      {clock[0] | clock[1] << 8, clock[2], clock[3], clock[4], clock[5], clock[6]}, zone);
  const auto now = std::chrono::system_clock::now();
  EXPECT_LT(std::chrono::abs(now - shown), std::chrono::seconds(10))
      << platform::description(shown);
  EXPECT_EQ(clock[10], kOffset / (15 * 60)) << "the zone, in quarters of an hour";
}

TEST_F(RequestsTest, ALockOutlivesTheDaemonUntilItIsRemoved) {
  writeSettings(kStaysConnected);
  startBoth();
  waitForFirstValues();
  const auto address = bus_->getProperty(kVirtualBand, "Address");
  ASSERT_TRUE(address);
  const auto isLocked = [&] {
    return announced_.contains("LockedTo") && announced_.at("LockedTo") == *address;
  };
  EXPECT_FALSE(std::filesystem::exists(lockFile()));
  post("org.corvale.wrixel2.lockToCurrentBand");
  waitUntil("the daemon is locked", isLocked);
  std::ifstream file(lockFile());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), *address->text());

  daemon_->signal(SIGKILL);
  waitForExit(*daemon_, 128 + SIGKILL);
  waitUntil("its name is free", [this] { return !hasOwner(kStatus.destination); });
  announced_.clear();
  startDaemon();
  waitForFirstValues();
  EXPECT_TRUE(isLocked()) << "the lock is forgotten";

  post("org.corvale.wrixel2.removeLock");
  waitUntil("the lock is gone",
            [this] { return platform::textForKey(announced_, "LockedTo") == ""; });
  EXPECT_FALSE(std::filesystem::exists(lockFile()));
}

TEST_F(RequestsTest, ContinuousMeasurementAndTheButtonReachTheOtherSide) {
  writeSettings(kStaysConnected);
  startBoth();
  waitForFirstValues();
  writeSettings(std::string(kStaysConnected) + "continuousHr = true\n");
  waitUntil("it is switched on", [this] { return !written(kHeartRateControl).empty(); });
  waitUntil("the owner is told", [this] { return !alerts_.empty(); });
  ASSERT_EQ(alerts_.size(), 1U);
  EXPECT_EQ(alerts_.back().first, "Continuous HR Started");
  writeSettings(kStaysConnected);
  waitForAlert({"Continuous HR Stopped", "Continuous Heart Rate measurement disabled!"});
  waitUntil("it is switched off", [this] { return written(kHeartRateControl).size() == 2; });
  EXPECT_EQ(written(kHeartRateControl), (std::vector<Bytes>{kMeasureAlways, kMeasureOnce}));

  EXPECT_FALSE(companion_->hasLogged("button"));
  callBand("PressButton");
  waitUntil("the companion notices",
            [this] { return companion_->hasLogged("The band's button was pressed"); });
}

TEST_F(RequestsTest, AHeartRateThatWasAcknowledgedOutlivesAKilledCompanion) {
  writeSettings("");
  startCompanion();
  const auto write = [this](const platform::Value& heartRate) {
    const auto call = bus_->newMethodCall(
        {"org.corvale.wrixel2Ipc", "/org/corvale/wrixel2Ipc", "org.corvale.wrixel2Ipc"},
        "writeHeartRate", "a{sv}", {Dictionary{{"heartRate", heartRate}}});
    return bus_->call(*call);
  };
  EXPECT_FALSE(write(Array{66})) << "what is no number was acknowledged";
  const auto acknowledged = write(66);
  companion_->signal(SIGKILL);
  ASSERT_TRUE(acknowledged) << acknowledged.error().localizedDescription;
  waitForExit(*companion_, 128 + SIGKILL);
  EXPECT_EQ(storedSamples(), "66.0 count/min;");

  // The next one goes on with the same database.
  startCompanion();
  EXPECT_TRUE(write(67));
  EXPECT_EQ(storedSamples(), "66.0 count/min;67.0 count/min;");
}

}  // namespace
}  // namespace wrixel2::integration
