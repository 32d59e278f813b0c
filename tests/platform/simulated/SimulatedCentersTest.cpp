#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::platform::simulated {
namespace {

using namespace std::chrono_literals;

class SimulatedCentersTest : public ::testing::Test {
 protected:
  std::unique_ptr<MessageCenter> center(std::string_view name = "org.example.Center") {
    return platform_.messageCenters.centerNamed(name);
  }

  SimulatedPlatform platform_;
};

TEST_F(SimulatedCentersTest, AMessageIsHandledLaterAndInOrderAndARequestAnsweredInsideTheCall) {
  const auto server = center();
  std::vector<std::string> handled;
  for (const char* const name : {"one", "two"}) {
    server->registerForMessageName(
        name, [&handled](std::string_view message, const Dictionary& userInfo) {
          handled.push_back(std::string(message) + textForKey(userInfo, "key").value_or("?"));
        });
  }
  server->registerForMessageNameWithReply(
      "get", [](std::string_view, const Dictionary& userInfo) -> Result<Dictionary> {
        return Dictionary{{"echo", userInfo.at("value")}};
      });
  server->registerForMessageNameWithReply(
      "fail",
      [](std::string_view, const Dictionary&) -> Result<Dictionary> { return Error{42, "No"}; });
  ASSERT_EQ(server->runServer(), std::nullopt);

  const auto client = center();
  client->sendMessageName("two", {{"key", "A"}});
  client->sendMessageName("unknown");
  const auto reply = client->sendMessageAndReceiveReplyName("get", {{"value", 5}});
  ASSERT_TRUE(reply);
  EXPECT_EQ(intForKey(*reply, "echo"), 5);
  EXPECT_EQ(client->sendMessageAndReceiveReplyName("fail").error().code, 42);
  EXPECT_EQ(client->sendMessageAndReceiveReplyName("unknown").error().code, ENOSYS);
  const auto empty = client->sendMessageAndReceiveReplyName("one", {{"key", "B"}});
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
  EXPECT_TRUE(handled.empty());  // answered before it is handled
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(handled, (std::vector<std::string>{"twoA", "oneB"}));
}

TEST_F(SimulatedCentersTest, AMessageThatIsSentForAnAnswerGetsItLater) {
  auto server = center();
  std::vector<std::string> events;
  server->registerForMessageName(
      "tell", [&](std::string_view, const Dictionary&) { events.emplace_back("told"); });
  server->registerForMessageNameWithReply(
      "get", [](std::string_view, const Dictionary&) { return Dictionary{{"value", 5}}; });
  const auto client = center();
  std::unique_ptr<PendingAnswer> pending;
  const auto send = [&](const char* name) {
    auto sent = client->sendMessageNameForAnswer(name, {}, [&](const Result<Dictionary>& answer) {
      events.push_back(answer ? "answer " + std::to_string(intForKey(*answer, "value"))
                              : "error " + std::to_string(answer.error().code));
      pending.reset();
    });
    ASSERT_TRUE(sent);
    pending = std::move(*sent);
  };
  const auto eventsSince = [&] {
    platform_.runLoop.runUntilIdle();
    return std::exchange(events, {});
  };
  using Events = std::vector<std::string>;
  send("tell");
  EXPECT_EQ(eventsSince(), Events{"error " + std::to_string(MessageCenter::kNobodyServes)});
  ASSERT_EQ(server->runServer(), std::nullopt);
  send("tell");
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(eventsSince(), (Events{"answer 0", "told"}));
  send("get");
  EXPECT_EQ(eventsSince(), Events{"answer 5"});
  send("unknown");
  EXPECT_EQ(eventsSince(), Events{"error " + std::to_string(ENOSYS)});
  send("tell");
  pending.reset();
  EXPECT_EQ(eventsSince(), Events{"told"}) << "the answer is dropped, the message is not";

  platform_.messageCenters.setHanging("org.example.Center", true);
  send("tell");
  EXPECT_EQ(eventsSince(), Events{});
  platform_.messageCenters.setHanging("org.example.Center", false);
  EXPECT_EQ(eventsSince(), (Events{"answer 0", "told"}));
  platform_.messageCenters.setHanging("org.example.Center", true);
  send("tell");
  server.reset();
  EXPECT_EQ(eventsSince(), Events{"error " + std::to_string(MessageCenter::kServerIsGone)});
}

TEST_F(SimulatedCentersTest, WhatIsSentIsRecordedThoughNobodyServesOrTheServerHangs) {
  const auto client = center();
  client->sendMessageName("alertUser", {{"title", "Hello"}});
  EXPECT_EQ(client->sendMessageAndReceiveReplyName("getPrefsDict").error().code, ESRCH);
  EXPECT_EQ(platform_.messageCenters.sentMessages().size(), 2U);
  const auto alerts = platform_.messageCenters.sentMessages("alertUser");
  ASSERT_EQ(alerts.size(), 1U);
  EXPECT_EQ(textForKey(alerts[0].userInfo, "title"), "Hello");
  EXPECT_FALSE(alerts[0].wantsReply);

  const auto server = center();
  ASSERT_EQ(server->runServer(), std::nullopt);
  platform_.messageCenters.setHanging("org.example.Center", true);
  const MonotonicTime start = platform_.clock.monotonicNow();
  EXPECT_EQ(client->sendMessageAndReceiveReplyName("get").error().code, ETIMEDOUT);
  EXPECT_EQ(platform_.clock.monotonicNow() - start, 2s);
}

TEST_F(SimulatedCentersTest, ANameIsServedOnceAndFreeAgainWhenItsServerIsGone) {
  auto server = center();
  EXPECT_EQ(server->runServer(), std::nullopt);
  EXPECT_TRUE(center()->runServer().has_value());
  std::string seen;
  const auto handleWith = [&](const std::unique_ptr<MessageCenter>& one) {
    one->registerForMessageName("m", [&](std::string_view name, const Dictionary&) {
      server.reset();  // its own center
      seen = name;
    });
  };
  handleWith(server);
  center()->sendMessageName("m");
  server.reset();
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(seen, "");
  EXPECT_FALSE(platform_.messageCenters.isServed("org.example.Center"));

  server = center();
  handleWith(server);
  EXPECT_EQ(server->runServer(), std::nullopt);
  center()->sendMessageName("m");
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(seen, "m");
  platform_.messageCenters.setTaken("org.example.Taken", true);
  EXPECT_TRUE(center("org.example.Taken")->runServer().has_value());
}

TEST_F(SimulatedCentersTest, APostingReachesEachObserverOnceAndNeverInsideThePost) {
  auto& notify = platform_.darwinNotifyCenter;
  std::vector<int> seen;
  auto first = notify.addObserver("n", SuspensionBehavior::coalesce, [&](std::string_view) {
    seen.push_back(1);
    notify.post("other");
  });
  const auto second = notify.addObserver("n", SuspensionBehavior::deliverImmediately,
                                         [&](std::string_view) { seen.push_back(2); });
  const auto other = notify.addObserver("other", SuspensionBehavior::deliverImmediately,
                                        [&](std::string_view) { seen.push_back(3); });
  notify.post("n");
  EXPECT_TRUE(seen.empty());
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));

  notify.postFromOutside("n");
  first.reset();  // after the posting, before its delivery
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 2}));
  EXPECT_EQ(notify.postings(), (std::vector<std::string>{"n", "other"}));
}

TEST_F(SimulatedCentersTest, AnObserverMayEndItsOwnObservationAndOthers) {
  auto& center = platform_.distributedNotificationCenter;
  std::vector<Notification> seen;
  std::unique_ptr<Observation> first;
  std::unique_ptr<Observation> second;
  first = center.addObserver("n", [&](const Notification& notification) {
    first.reset();
    second.reset();
    seen.push_back(notification);
  });
  second = center.addObserver("n", [&](const Notification&) { FAIL() << "was removed"; });
  center.post({"n", "object", {{"heartRate", 72}}});
  center.post({"n", std::nullopt, {}});
  platform_.runLoop.runUntilIdle();
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].object, "object");
  EXPECT_EQ(intForKey(seen[0].userInfo, "heartRate"), 72);
  EXPECT_EQ(center.postings("n").size(), 2U);
}

TEST_F(SimulatedCentersTest, AnExportedObjectRefusesWhatItDoesNotHave) {
  auto& exporter = platform_.objectExporter;
  ExportedInterface interface;
  interface.properties = {{"Fixed", "s", [] { return Value("x"); }, nullptr}};
  interface.methods = {{"Add", {{"n", "i"}}, [](const Array&) { return ErrorOrNone(); }}};
  auto object = exporter.exportObject("org.example.O", "/o", std::move(interface));
  ASSERT_TRUE(object);
  EXPECT_FALSE(exporter.exportObject("org.example.O", "/p", {}));
  EXPECT_FALSE(exporter.exportObject("", "/o", {}));

  EXPECT_EQ(exporter.call("/o", "Add", {3}), std::nullopt);
  EXPECT_TRUE(exporter.setProperty("/o", "Fixed", "y").has_value());
  EXPECT_TRUE(exporter.setProperty("/o", "None", 1).has_value());
  EXPECT_TRUE(exporter.call("/o", "Add").has_value());
  EXPECT_TRUE(exporter.call("/nowhere", "Add", {3}).has_value());
  object->reset();
  EXPECT_TRUE(exporter.exportObject("org.example.O", "/o", {}));
}

TEST_F(SimulatedCentersTest, WorkThatOwnsPartsOfThePlatformGoesBeforeThem) {
  auto platform = std::make_unique<SimulatedPlatform>();
  auto server = platform->messageCenters.centerNamed("org.example.Center");
  ASSERT_EQ(server->runServer(), std::nullopt);
  platform->runLoop.post([owned = std::move(server)] {});
  platform.reset();  // the sanitizers would tell
}

}  // namespace
}  // namespace wrixel2::platform::simulated
