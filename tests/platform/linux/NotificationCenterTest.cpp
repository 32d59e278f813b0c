#include "platform/linux/SdBusDarwinNotifyCenter.h"
#include "platform/linux/SdBusDistributedNotificationCenter.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

class NotificationCenterTest : public BusTest {
 protected:
  std::unique_ptr<Observation> observe(std::string_view name, const std::string& mark) {
    return darwin.addObserver(name, SuspensionBehavior::coalesce,
                              [this, mark](std::string_view) { observed += mark; });
  }

  std::string observed;
  SdBusDarwinNotifyCenter darwin{*own, log};
  SdBusDarwinNotifyCenter otherDarwin{*other, log};
  SdBusDistributedNotificationCenter distributed{*own, log};
  SdBusDistributedNotificationCenter otherDistributed{*other, log};
};

TEST_F(NotificationCenterTest, EachObserverGetsAPostingOnceWhereverItComesFrom) {
  const auto first = observe("changed", "1");
  const auto second = observe("changed", "2");
  const auto unconcerned = observe("changed/hk", "x");
  darwin.post("changed");
  EXPECT_EQ(observed, "") << "delivered inside post()";
  serveAll();
  EXPECT_EQ(observed, "12") << "our own postings come back from the bus and are ignored";
  otherDarwin.post("changed");
  serveAll();
  EXPECT_EQ(observed, "1212");
}

TEST_F(NotificationCenterTest, AnEndedObservationIsNotCalledForWhatWasPostedBefore) {
  auto ended = observe("changed", "e");
  const auto kept = observe("changed", "k");
  darwin.post("changed");
  otherDarwin.post("changed");
  ended.reset();
  const auto added = observe("changed", "a");
  serveAll();
  EXPECT_EQ(observed, "kka") << "the added one came after our own posting";
}

TEST_F(NotificationCenterTest, ObserversMayEndObservationsAndPostWhileNotified) {
  std::unique_ptr<Observation> first;
  std::unique_ptr<Observation> second;
  first = darwin.addObserver("changed", SuspensionBehavior::coalesce, [&](std::string_view name) {
    observed += "1";
    second.reset();
    darwin.post("next");
    first.reset();
    EXPECT_EQ(name, "changed");
  });
  second = observe("changed", "2");
  const auto next = observe("next", "n");
  otherDarwin.post("changed");
  otherDarwin.post("changed");
  serveAll();
  EXPECT_EQ(observed, "1n");
}

TEST_F(NotificationCenterTest, DistributedNotificationsCarryObjectAndUserInfo) {
  std::vector<Notification> notifications;
  const auto observation = distributed.addObserver(
      "measure", [&](const Notification& notification) { notifications.push_back(notification); });
  const Dictionary info = {{"heartRate", 61}};
  distributed.post({"measure", std::nullopt, info});
  distributed.post({"other", std::nullopt, info});
  serveAll();
  otherDistributed.post({"measure", "object", {}});
  otherDistributed.post({"measure", std::nullopt, info});
  serveAll();
  ASSERT_EQ(notifications.size(), 3U);
  EXPECT_EQ(notifications[1].object, "object");
  for (const std::size_t number : {0U, 2U}) {
    EXPECT_EQ(notifications[number].object, std::nullopt);
    EXPECT_EQ(notifications[number].userInfo, info);
  }
}

TEST_F(NotificationCenterTest, MalformedSignalsAreDroppedWithOneWarning) {
  const auto first = observe("changed", "1");
  const auto second = observe("changed", "2");
  const auto third =
      distributed.addObserver("changed", [this](const Notification&) { observed += "d"; });
  const struct {
    std::string center;
    const char* signature;
    Array arguments;
  } cases[] = {{"NotifyCenter", "si", {"changed", 1}},
               {"DistributedNotificationCenter", "s", {"changed"}},
               {"DistributedNotificationCenter", "ssa{ss}", {"changed", "", Dictionary()}}};
  for (const auto& item : cases) {
    log.lines.clear();
    ASSERT_FALSE(other->emitSignal("/org/corvale/" + item.center, "org.corvale." + item.center,
                                   "Posted", item.signature, item.arguments));
    serveAll();
    EXPECT_EQ(log.count("WARN"), 1U) << item.signature;
  }
  EXPECT_EQ(observed, "");
}

}  // namespace
}  // namespace wrixel2::platform::linux
