#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/BulletinOutbox.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::companion {
namespace {

using namespace std::chrono_literals;
using platform::Dictionary;
using platform::LogLevel;
using Names = std::vector<std::string>;

constexpr const char* kDaemon = "org.corvale.wrixel2dIpc";

/// An outbox, and a daemon that can be there, hang, die and come back.
class BulletinOutboxTest : public testing::Test {
 protected:
  void startDaemon() {
    daemon_ = phone_.messageCenters.centerNamed(kDaemon);
    daemon_->registerForMessageName("bulletinRequest",
                                    [this](std::string_view, const Dictionary& userInfo) {
                                      taken_.push_back(*platform::textForKey(userInfo, "message"));
                                    });
    ASSERT_EQ(daemon_->runServer(), std::nullopt);
  }
  void killDaemon() {
    daemon_.reset();
    phone_.messageCenters.setHanging(kDaemon, false);
  }
  void startIntroducedDaemon() {
    startDaemon();
    outbox_.resume();
  }

  BulletinOutbox::Ticket add(const std::string& message) {
    return outbox_.add("app", {{"message", message}});
  }
  Names taken() {
    phone_.runLoop.runUntilIdle();
    return std::exchange(taken_, {});
  }
  std::size_t dropped(const std::string& reason) {
    std::size_t count = 0;
    for (const std::string& line : phone_.log.messages(LogLevel::warning)) {
      count += line.find(reason) == std::string::npos ? 0 : 1;
    }
    return count;
  }

  platform::simulated::SimulatedPlatform phone_;
  std::unique_ptr<platform::MessageCenter> daemon_;
  Names taken_;
  Names prepared_;
  std::unique_ptr<platform::MessageCenter> toDaemon_ = phone_.messageCenters.centerNamed(kDaemon);
  BulletinOutbox outbox_{*toDaemon_, phone_.clock, phone_.log,
                         [this](const std::string& app) { prepared_.push_back(app); }};
};

TEST_F(BulletinOutboxTest, HandsOnInOrderOnceTheDaemonIsIntroduced) {
  startDaemon();
  add("1");
  add("2");
  EXPECT_EQ(taken(), Names{});
  EXPECT_TRUE(prepared_.empty());
  outbox_.resume();
  add("3");
  EXPECT_EQ(taken(), (Names{"1", "2", "3"}));
  EXPECT_EQ(prepared_.size(), 3U);
  outbox_.hold();
  add("4");
  EXPECT_EQ(taken(), Names{}) << "the daemon is gone";
  outbox_.resume();
  EXPECT_EQ(taken(), Names{"4"});
}

TEST_F(BulletinOutboxTest, KeepsWhatNobodyTookForTheNextDaemon) {
  outbox_.resume();
  add("1");
  EXPECT_EQ(taken(), Names{});
  add("2");
  startDaemon();
  EXPECT_EQ(taken(), Names{}) << "before the introduction";
  outbox_.resume();
  EXPECT_EQ(taken(), (Names{"1", "2"}));

  // And what one had been sent and died on, once.
  phone_.messageCenters.setHanging(kDaemon, true);
  add("3");
  add("4");
  EXPECT_EQ(taken(), Names{});
  killDaemon();
  EXPECT_EQ(taken(), Names{});
  startIntroducedDaemon();
  EXPECT_EQ(taken(), (Names{"3", "4"}));
  killDaemon();
  startIntroducedDaemon();
  EXPECT_EQ(taken(), Names{});
}

TEST_F(BulletinOutboxTest, ALateAnswerMakesNoSecondAlert) {
  startIntroducedDaemon();
  phone_.messageCenters.setHanging(kDaemon, true);
  add("1");
  add("2");
  phone_.runLoop.runFor(3600s);
  outbox_.resume();
  phone_.messageCenters.setHanging(kDaemon, false);
  EXPECT_EQ(taken(), Names{"1"});
  EXPECT_EQ(dropped("waited too long"), 1U);
  add("3");
  EXPECT_EQ(taken(), Names{"3"});
}

TEST_F(BulletinOutboxTest, DropsTheOldestAboveItsBound) {
  constexpr std::size_t kAdded = BulletinOutbox::kMostWaiting + 2;
  for (std::size_t i = 0; i < kAdded; ++i) {
    add(std::to_string(i));
  }
  EXPECT_EQ(dropped("too many wait for the daemon"), 2U);
  EXPECT_TRUE(phone_.log.contains(LogLevel::warning, "of app: "));
  EXPECT_TRUE(phone_.log.contains(LogLevel::warning, "(2 dropped so far)"));
  startIntroducedDaemon();
  const Names names = taken();
  ASSERT_EQ(names.size(), BulletinOutbox::kMostWaiting);
  EXPECT_EQ(names.front(), "2");
  EXPECT_EQ(names.back(), std::to_string(kAdded - 1));

  // The one that is on its way stays.
  phone_.messageCenters.setHanging(kDaemon, true);
  for (std::size_t i = 0; i <= BulletinOutbox::kMostWaiting; ++i) {
    add(std::to_string(i));
  }
  phone_.messageCenters.setHanging(kDaemon, false);
  const Names rest = taken();
  ASSERT_EQ(rest.size(), BulletinOutbox::kMostWaiting);
  EXPECT_EQ((Names{rest[0], rest[1]}), (Names{"0", "2"}));
}

TEST_F(BulletinOutboxTest, KeepsAMegabyteOfTextsAndNoMore) {
  const std::string text(8000, 'x');
  for (int i = 0; i < 1000; ++i) {
    add(text);
  }
  startIntroducedDaemon();
  const std::size_t kept = taken().size();
  EXPECT_EQ(kept, BulletinOutbox::kMostBytes / (text.size() + sizeof "message" - 1));
  EXPECT_EQ(dropped("too many wait for the daemon"), 1000 - kept);
  add("and the next");
  EXPECT_EQ(taken(), Names{"and the next"});
}

TEST_F(BulletinOutboxTest, DropsWhatIsOlderThanAMinute) {
  add("1");
  phone_.runLoop.runFor(1us);
  add("2");
  phone_.runLoop.runFor(60s);
  startIntroducedDaemon();
  EXPECT_EQ(taken(), Names{"2"});
  EXPECT_EQ(dropped("waited too long"), 1U);
}

TEST_F(BulletinOutboxTest, TakesBackWhatIsOutOfDate) {
  startIntroducedDaemon();
  phone_.messageCenters.setHanging(kDaemon, true);
  const auto onItsWay = add("1");
  const auto waiting = add("2");
  add("3");
  EXPECT_FALSE(outbox_.takeBack(waiting));
  EXPECT_TRUE(outbox_.takeBack(onItsWay));
  killDaemon();
  startIntroducedDaemon();
  phone_.runLoop.runUntilIdle();
  outbox_.resume();
  EXPECT_EQ(taken(), Names{"3"});
  EXPECT_EQ(dropped("it was over"), 2U);
}

TEST_F(BulletinOutboxTest, ARefusalIsNotSentAgain) {
  daemon_ = phone_.messageCenters.centerNamed(kDaemon);  // knows no such message
  ASSERT_EQ(daemon_->runServer(), std::nullopt);
  outbox_.resume();
  add("1");
  add("2");
  taken();
  EXPECT_EQ(dropped("the daemon refused it"), 2U);
}

TEST_F(BulletinOutboxTest, SaysAtTheEndHowManyWaited) {
  BulletinOutbox(*toDaemon_, phone_.clock, phone_.log, [](const std::string&) {
  }).add("app", {{"message", "private"}});
  EXPECT_TRUE(phone_.log.contains(LogLevel::warning, "1 notifications had not been taken"));
  EXPECT_FALSE(phone_.log.contains(LogLevel::warning, "private"));
}

}  // namespace
}  // namespace wrixel2::companion
