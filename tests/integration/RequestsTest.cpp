#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "SessionTest.h"
#include "platform/UUID.h"

namespace wrixel2::integration {
namespace {

const platform::linux::BusAddress kCompanion{kCompanionName, "/org/corvale/wrixel2Ipc",
                                             kCompanionName};

/// What a request to the band brings about, seen from every side: the desktop that shows alerts,
/// the observers of notifications and properties, the band, and the readers of stored data.
class RequestsTest : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    serveAlerts();
    match("interface='org.corvale.DistributedNotificationCenter'",
          [this](const BusMessage& message) {
            const Array arguments = message.arguments().value();
            distributed_[*arguments[0].text()].push_back(*arguments[2].dictionary());
          });
    match("interface='org.freedesktop.DBus.Properties',path='" + kStatus.path + "'",
          [this](const BusMessage& message) {
            const Array arguments = message.arguments().value();
            for (const auto& [name, value] : *arguments[1].dictionary()) {
              announced_.insert_or_assign(name, value);
            }
          });
  }

  /// The band's first values are known: everything it tells of its own accord is listened to.
  void waitForFirstValues() {
    waitUntil("the band is ready and its battery known", [this] {
      return platform::boolForKey(announced_, "Initialized") &&
             platform::intForKey(announced_, "Battery") != 0;
    });
  }
  void waitUntilLockedTo(const std::string& band) {
    waitUntil("the lock is " + band,
              [&] { return platform::textForKey(announced_, "LockedTo") == band; });
    EXPECT_EQ(std::filesystem::exists(directory_ / "state/wrixel2/org.corvale.wrixel2.lock.plist"),
              !band.empty());
  }
  /// Once it has been set so many times.
  Bytes clockOfBand(int timesSet) {
    const auto isClock = [](const BandEvent& event) {
      return event.kind == "Written" && platform::UUID::withString(*event.arguments[1].text()) ==
                                            platform::UUID::withString("2A2B");
    };
    waitUntil("the band's clock is set",
              [&] { return std::count_if(events_.begin(), events_.end(), isClock) == timesSet; });
    const auto clock = bus_->getProperty(kBand, "Clock");
    return clock && clock->data() != nullptr ? *clock->data() : Bytes{};
  }

  std::map<std::string, std::vector<Dictionary>> distributed_;
  /// The status as those see it who only listen for its changes.
  Dictionary announced_;
};

TEST_F(RequestsTest, CountersAndBatteryAreReportedAndTheStatusAndTheLockFollow) {
  writeSettings("connectedMode = 1\n");
  startDaemon();
  setBandProperty("BatteryLevel", "y", 63);
  startCompanion();
  waitForFirstValues();
  setBandProperty("Steps", "u", 4321);
  setBandProperty("Distance", "u", 2500);
  setBandProperty("Calories", "u", 99);
  auto& reports = distributed_["org.corvale.wrixel2.capabilities"];
  const Dictionary expected{{"isHealtKitSupported", true},
                            {"batteryStatus", "63% "},
                            {"currentSteps", "4321 "},
                            {"currentDistance", "2500m "},
                            {"currentCalories", "99 "}};
  // Each change is reported by itself, in order: after the last one no other is on its way.
  waitUntil("the last change is reported",
            [&] { return !reports.empty() && reports.back() == expected; });
  waitUntil("the status follows",
            [this] { return platform::intForKey(announced_, "Steps") == 4321; });
  reports.clear();
  EXPECT_TRUE(callPost(*bus_, "ssa{sv}", {"org.corvale.wrixel2.capReq", "", Dictionary{}}));
  waitUntil("the report", [&] { return !reports.empty(); });
  EXPECT_EQ(reports, std::vector<Dictionary>{expected});

  const std::string band = *bus_->getProperty(kBand, "Address")->text();
  const Dictionary now{{"State", "connected"}, {"Band", band},
                       {"Initialized", true},  {"LockedTo", ""},
                       {"Battery", 63},        {"Steps", 4321},
                       {"NextMeasurement", 0}, {"NextStepCheck", 0},
                       {"Problem", ""},        {"Authentication", "accepted"}};
  EXPECT_EQ(*bus_->getAllProperties(kStatus), now);
  for (const auto& [name, value] : announced_) {
    EXPECT_EQ(value, now.at(name)) << name << " was announced otherwise than it is";
  }

  // A lock outlives the daemon until it is removed.
  post("org.corvale.wrixel2.lockToCurrentBand");
  waitUntilLockedTo(band);
  kill(daemon_, kDaemonName);
  announced_.clear();
  startDaemon();
  waitForFirstValues();
  waitUntilLockedTo(band);
  post("org.corvale.wrixel2.removeLock");
  waitUntilLockedTo("");

  EXPECT_FALSE(companion_->hasLogged("button"));
  callBand("PressButton");
  waitUntil("the companion notices",
            [this] { return companion_->hasLogged("The band's button was pressed"); });
}

TEST_F(RequestsTest, TheBandsClockIsTheStopwatch) {
  // A zone that neither GMT nor whole hours pass for.
  environment_["TZ"] = "HERE-5:30";
  constexpr int kOffset = (5 * 60 + 30) * 60;
  writeSettings("connectedMode = 1\n");
  startBoth();
  waitForFirstValues();
  writeSettings("connectedMode = 1\nstopwatchSwitch = true\n");
  Bytes clock = clockOfBand(1);
  ASSERT_EQ(clock.size(), 11U);
  EXPECT_EQ(Bytes(clock.begin() + 4, clock.begin() + 6), (Bytes{0, 0}));
  EXPECT_GE(clock[6], 1);
  EXPECT_LT(clock[6], 20);

  writeSettings("connectedMode = 1\nstopwatchSwitch = false\n");
  clock = clockOfBand(2);
  waitUntil("the elapsed time is shown", [this] { return alerts_.size() == 2; });
  EXPECT_EQ(alerts_[0], "Stopwatch started: Let's start!");
  const auto& posted = distributed_["org.corvale.wrixel2.stopwatch"];
  ASSERT_EQ(posted.size(), 1U);
  const auto elapsed = platform::textForKey(posted[0], "timeDifference").value_or("none");
  EXPECT_TRUE(elapsed.size() == 8 && elapsed.starts_with("00:00:") && elapsed < "00:00:20")
      << elapsed;
  EXPECT_EQ(alerts_[1], "Stopwatch stopped: " + elapsed);

  ASSERT_EQ(clock.size(), 11U);
  const platform::FixedTimeZone zone(kOffset);
  const auto time = platform::dateFromComponents(
      {clock[0] | clock[1] << 8, clock[2], clock[3], clock[4], clock[5], clock[6]}, zone);
  const auto now = std::chrono::system_clock::now();
  EXPECT_LT(std::chrono::abs(now - time), std::chrono::seconds(10)) << platform::description(time);
  EXPECT_EQ(clock[10], kOffset / (15 * 60)) << "the zone, in quarters of an hour";
}

TEST_F(RequestsTest, AHeartRateThatWasAcknowledgedOutlivesAKilledCompanion) {
  const auto write = [this](const platform::Value& heartRate) {
    const auto call = bus_->newMethodCall(kCompanion, "writeHeartRate", "a{sv}",
                                          {Dictionary{{"heartRate", heartRate}}});
    return static_cast<bool>(bus_->call(*call));
  };
  /// The lines, as any other program reads them: a heading, and one for each rate.
  const auto stored = [this] {
    const auto reader = start({WRIXEL2CTL_PATH, "heart-rate", "--csv"});
    waitForExit(*reader, 0);
    const std::string lines = reader->output();
    return std::pair(std::count(lines.begin(), lines.end(), '\n') - 1,
                     lines.substr(lines.rfind(',')));
  };
  writeSettings("");
  startCompanion();
  for (const platform::Value& wrong : {platform::Value("abc"), platform::Value(300)}) {
    EXPECT_FALSE(write(wrong)) << "what is no heart rate was acknowledged";
  }
  EXPECT_TRUE(write(0));
  const bool isAcknowledged = write(66);
  companion_->signal(SIGKILL);
  ASSERT_TRUE(isAcknowledged);
  waitForExit(*companion_, 128 + SIGKILL);
  EXPECT_EQ(stored(), std::pair(1L, std::string(",66\n")));

  // The next one goes on with the same database.
  startCompanion();
  EXPECT_TRUE(write(67));
  EXPECT_EQ(stored(), std::pair(2L, std::string(",67\n")));
  const std::filesystem::path database = directory_ / "data/wrixel2/health.sqlite";
  std::filesystem::rename(database, directory_ / "moved.sqlite");
  EXPECT_TRUE(write(68));
  EXPECT_EQ(stored(), std::pair(1L, std::string(",68\n")));
  EXPECT_EQ(companion_->timesLogged("was moved or deleted"), 1);

  // Another program that holds it keeps nobody waiting but who wants to store something.
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  std::vector<std::string> answers;
  const auto ask = [&](const char* message, const Dictionary& userInfo) {
    const auto call = bus_->newMethodCall(kCompanion, message, "a{sv}", {userInfo});
    return bus_->callAsync(*call, [&answers, message](const BusMessage& reply) {
      answers.push_back(message + std::string(reply.isError() ? " failed" : ""));
    });
  };
  const auto storing = ask("writeHeartRate", {{"heartRate", 69}});
  const auto asking = ask("getPrefsDict", {});
  waitUntil("both are answered", [&] { return answers.size() == 2; });
  EXPECT_EQ(answers, (std::vector<std::string>{"getPrefsDict", "writeHeartRate failed"}));
  sqlite3_close(other);
}

}  // namespace
}  // namespace wrixel2::integration
