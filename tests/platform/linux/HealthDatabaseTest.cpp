#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/HealthDatabase.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxHealthStore.h"
#include "platform/linux/SqliteHealthReader.h"
#include "platform/linux/SqliteHealthStore.h"
#include "platform/simulated/SimulatedBackgroundWork.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/platform/linux/Limit.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/Synced.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

QuantitySample heartRate(double value) {
  const Date now = Date(std::chrono::seconds(1'700'000'000));
  return {std::string(kHeartRateType), std::string(kCountPerMinute), value, now, now};
}

class HealthDatabaseTest : public testing::Test {
 protected:
  static ErrorOrNone save(HealthDatabase& store, double value) {
    return store.save(heartRate(value));
  }

  /// As another program would: the values, oldest first, or the error.
  std::string query(const std::string& statement) const {
    sqlite3* database = nullptr;
    sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    std::string text;
    char* error = nullptr;
    sqlite3_exec(
        database, statement.c_str(),
        [](void* out, int count, char** values, char**) {
          for (int index = 0; index < count; ++index) {
            *static_cast<std::string*>(out) += std::string(values[index]) + " ";
          }
          return 0;
        },
        &text, &error);
    if (error != nullptr) {
      text = error;
      sqlite3_free(error);
    }
    sqlite3_close_v2(database);
    return text;
  }

  TemporaryDirectory directory;
  std::string path = directory.path("data/wrixel2/health.sqlite");
};

TEST_F(HealthDatabaseTest, KeepsEverySampleForOtherProgramsToRead) {
  {
    HealthDatabase store(path, "a band");
    EXPECT_TRUE(isHealthDatabaseUsable(path));
    EXPECT_EQ(save(store, 71), std::nullopt);
  }
  HealthDatabase again(path, "a band");
  EXPECT_EQ(again.open(), std::nullopt);
  for (const double value : {72.5, 73.0}) {
    syncedPaths().clear();
    EXPECT_EQ(save(again, value), std::nullopt);
    EXPECT_TRUE(std::ranges::count(syncedPaths(), path + "-wal")) << "a loss of power loses it";
  }
  EXPECT_EQ(
      query("SELECT type, unit, value, start_time, end_time, source FROM sample WHERE id = 1"),
      "HKQuantityTypeIdentifierHeartRate count/min 71.0 1700000000000000 1700000000000000 a "
      "band ");
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "71.0 72.5 73.0 ");
  EXPECT_EQ(query("PRAGMA journal_mode"), "wal ");

  struct stat status{};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U) << "health data is the owner's alone";
}

TEST_F(HealthDatabaseTest, WhatWasAcknowledgedSurvivesAKill) {
  const pid_t child = ::fork();
  if (child == 0) {
    HealthDatabase store(path, "a band");
    for (int value = 60; value < 65; ++value) {
      if (save(store, value)) {
        ::_exit(1);
      }
    }
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "60.0 61.0 62.0 63.0 64.0 ");
}

TEST_F(HealthDatabaseTest, ALockCostsOneSampleAndNoMore) {
  HealthDatabase store(path, "a band");
  ASSERT_EQ(save(store, 60), std::nullopt);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path.c_str(), &other, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  const auto error = save(store, 61);
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription.find("another program holds it"), std::string::npos);
  sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close_v2(other);
  EXPECT_EQ(save(store, 62), std::nullopt);
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "60.0 62.0 ");
}

TEST_F(HealthDatabaseTest, WhatIsMovedOrDeletedIsFollowedByANewFileWithNothingLost) {
  HealthDatabase store(path, "a band");
  ASSERT_EQ(save(store, 60), std::nullopt);
  ASSERT_EQ(save(store, 61), std::nullopt);
  EXPECT_FALSE(store.hasFileChanged());
  const std::string first = path;
  const std::string moved = directory.path("moved.sqlite");
  ASSERT_EQ(::rename(first.c_str(), moved.c_str()), 0);
  ASSERT_EQ(save(store, 62), std::nullopt);
  EXPECT_TRUE(store.hasFileChanged());
  EXPECT_FALSE(store.hasFileChanged()) << "said once";
  EXPECT_EQ(query("SELECT value FROM sample"), "62.0 ");
  path = moved;
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "60.0 61.0 ");

  path = first;
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_EQ(save(store, 63), std::nullopt);
  EXPECT_TRUE(store.hasFileChanged());
  EXPECT_EQ(query("SELECT value FROM sample"), "63.0 ");

  // A copy that is put back takes the next one.
  ASSERT_EQ(::rename(moved.c_str(), path.c_str()), 0);
  ASSERT_EQ(save(store, 64), std::nullopt);
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "60.0 61.0 64.0 ");
  EXPECT_EQ(query("PRAGMA integrity_check"), "ok ");
}

TEST_F(HealthDatabaseTest, IsOpenedAnewAfterAFailure) {
  HealthDatabase store(path, "a band");
  ASSERT_EQ(save(store, 60), std::nullopt);
  query("DROP TABLE sample; PRAGMA user_version = 0");
  EXPECT_TRUE(save(store, 61));
  EXPECT_EQ(save(store, 62), std::nullopt);
  EXPECT_EQ(query("SELECT value FROM sample"), "62.0 ");
}

TEST_F(HealthDatabaseTest, TheStoreAnswersInOrderOnceTheDiskHasIt) {
  RecordingLog log;
  simulated::SimulatedPlatform phone;
  simulated::SimulatedBackgroundWork work(phone.runLoop);
  SqliteHealthStore store(path, "a band", work, log);
  std::vector<std::string> answers;
  const auto note = [&answers](const char* what) {
    return [&answers, what](const ErrorOrNone& error) {
      answers.push_back(error ? error->localizedDescription : what);
    };
  };
  work.setIsSlow(true);
  store.requestAuthorizationToShare(kHeartRateType, note("permission"));
  store.saveSample(heartRate(60), note("60"));
  phone.runLoop.runUntilIdle();
  EXPECT_TRUE(answers.empty());
  work.setIsSlow(false);
  phone.runLoop.runUntilIdle();
  EXPECT_EQ(answers, (std::vector<std::string>{"permission", "60"}));
  ASSERT_EQ(::unlink(path.c_str()), 0);
  store.saveSample(heartRate(61), note("61"));
  store.saveSample(heartRate(62), note("62"));
  phone.runLoop.runUntilIdle();
  EXPECT_EQ(query("SELECT value FROM sample"), "61.0 62.0 ");
  EXPECT_EQ(log.count("WARN The health database " + path + " was moved or deleted"), 1U);
  work.setIsFull(true);
  store.saveSample(heartRate(63), note("63"));
  EXPECT_NE(answers.back().find("too many"), std::string::npos);
}

TEST_F(HealthDatabaseTest, AFullDatabaseKeepsWhatItHas) {
  HealthDatabase store(path, "a band");
  ASSERT_EQ(save(store, 60), std::nullopt);
  // As the disk would: no page more than there is. Long sources fill the last one.
  HealthDatabase wordy(path, std::string(100'000, 'x'));
  {
    const Limit small(RLIMIT_FSIZE, 64 * 1024);
    EXPECT_TRUE(save(wordy, 61));
  }
  EXPECT_EQ(save(store, 62), std::nullopt);
  EXPECT_EQ(query("SELECT value FROM sample ORDER BY id"), "60.0 62.0 ");
}

TEST_F(HealthDatabaseTest, LeavesADatabaseItCannotUseAsItIs) {
  for (const auto& contents :
       {std::string(8192, 'x'),  // no database, and the header of one
        std::string("SQLite format 3\0\x10\0", 18) + std::string(200, '\0')}) {
    path = directory.write("damaged.sqlite", contents);
    HealthDatabase store(path, "a band");
    const auto error = save(store, 60);
    ASSERT_TRUE(error);
    EXPECT_NE(error->localizedDescription.find("move it away"), std::string::npos)
        << error->localizedDescription;
    EXPECT_EQ(LinuxFileManager().contentsAtPath(path).value(), bytesOfText(contents));
  }
  EXPECT_FALSE(SqliteHealthReader(path).samples(kHeartRateType, Date(), Date::max()));

  path = directory.path("later.sqlite");
  HealthDatabase store(path, "a band");
  ASSERT_EQ(save(store, 60), std::nullopt);
  query("PRAGMA user_version = 99");
  HealthDatabase older(path, "a band");
  EXPECT_TRUE(save(older, 61));
  EXPECT_EQ(query("SELECT value FROM sample"), "60.0 ");

  HealthDatabase misplaced(path + "/below/health.sqlite", "a band");
  EXPECT_FALSE(isHealthDatabaseUsable(path + "/below/health.sqlite"));
  const ErrorOrNone refusal = misplaced.open();
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->code, ENOTDIR);
}

TEST_F(HealthDatabaseTest, AReaderSeesTheSamplesOfItsTimeWhileTheyAreWritten) {
  const SqliteHealthReader reader(path);
  const auto read = [&reader](int from, int until) {
    std::vector<double> values;
    const auto samples = reader.samples(kHeartRateType, Date(std::chrono::seconds(from)),
                                        Date(std::chrono::seconds(until)));
    EXPECT_TRUE(samples) << samples.error().localizedDescription;
    for (const QuantitySample& sample : *samples) {
      values.push_back(sample.quantity);
    }
    return values;
  };
  EXPECT_EQ(read(0, 2'000'000'000), std::vector<double>{}) << "there is no database yet";
  const std::string fresh = directory.write("fresh.sqlite", "");
  EXPECT_TRUE(SqliteHealthReader(fresh).samples(kHeartRateType, Date(), Date::max())->empty());
  EXPECT_EQ(directory.entryCount(), 1U) << "reading makes no files";
  HealthDatabase store(path, "a band");
  for (const int second : {300, 100, 200}) {
    QuantitySample sample = heartRate(second / 2.0);
    sample.startDate = sample.endDate = Date(std::chrono::seconds(second));
    EXPECT_EQ(store.save(sample), std::nullopt);
  }
  QuantitySample other = heartRate(1);
  other.type = "Steps";
  EXPECT_EQ(store.save(other), std::nullopt);
  EXPECT_EQ(read(0, 2'000'000'000), (std::vector<double>{50, 100, 150}));
  EXPECT_EQ(read(100, 300), (std::vector<double>{50, 100})) << "the end is not part of it";
  // Neither side waits for the other.
  query("BEGIN IMMEDIATE; ROLLBACK");
  EXPECT_EQ(save(store, 60), std::nullopt);
  query("PRAGMA user_version = 2");
  EXPECT_FALSE(reader.samples(kHeartRateType, Date(), Date::max())) << "a later version's";
}

}  // namespace
}  // namespace wrixel2::platform::linux
