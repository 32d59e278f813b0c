#include "platform/linux/SdBusDarwinNotifyCenter.h"
#include "platform/linux/SdBusDistributedNotificationCenter.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kPublisher = "org.example.Publisher";

class NotificationCenterTest : public BusTest {
 protected:
  std::unique_ptr<Observation> observe(std::string_view name, const std::string& mark) {
    return darwin.addObserver(name, SuspensionBehavior::coalesce,
                              [this, mark](std::string_view) { observed += mark; });
  }

  /// A posting by method, as of any program; the error's name, if it is one.
  std::string call(const char* name) {
    return std::string(answer(kDarwin, "Post", "s", {name}).errorName());
  }
  void signal(const BusConnection& from, const char* name,
              const std::string& destination = {}) const {
    sd_bus_message* raw = nullptr;
    sd_bus_message_new_signal(from.get(), &raw, kDarwin.path.c_str(), kDarwin.interface.c_str(),
                              "Posted");
    auto message = BusMessage::adopting(raw);
    ASSERT_FALSE(message.append("s", {name}));
    if (!destination.empty()) {
      sd_bus_message_set_destination(raw, destination.c_str());
    }
    ASSERT_FALSE(from.send(message));
  }

  const BusAddress kDarwin{own->uniqueName(), "/org/corvale/NotifyCenter",
                           "org.corvale.NotifyCenter"};
  std::string observed;
  BusService publisher{*own, kPublisher};
  /// The other program is the publisher.
  ErrorOrNone taken = other->requestName(kPublisher);
  ErrorOrNone followed = publisher.startAndWait();
  SdBusDarwinNotifyCenter darwin{*own, log, &publisher};
  SdBusDarwinNotifyCenter otherDarwin{*other, log};
  SdBusDistributedNotificationCenter distributed{*own, log, &publisher};
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

TEST_F(NotificationCenterTest, NobodyButThePublisherIsBelieved) {
  auto observation = observe("changed", "1");
  const auto stranger = open();
  for (const auto& destination : {std::string(), own->uniqueName()}) {
    signal(*stranger, "changed", destination);
    ASSERT_FALSE(
        other->emitSignal(kDarwin.path, kDarwin.interface, "Posted", "si", {"changed", 1}));
    ASSERT_TRUE(stranger->nameHasOwner(kPublisher)) << "the bus has passed the signal on";
    settle();
    EXPECT_EQ(observed, "") << destination;
  }
  EXPECT_TRUE(log.lines.empty());

  // Each owner's first and last posting: nothing is served in between.
  signal(*other, "changed");
  other->releaseName(kPublisher);
  signal(*other, "changed");
  ASSERT_FALSE(stranger->requestName(kPublisher));
  signal(*stranger, "changed");
  settle();
  EXPECT_EQ(observed, "11");
  // By who comes later than it.
  BusService late(*own, kPublisher);
  ASSERT_FALSE(late.startAndWait());
  SdBusDarwinNotifyCenter center(*own, log, &late);
  observation = center.addObserver("changed", SuspensionBehavior::coalesce,
                                   [this](std::string_view) { observed += "2"; });
  signal(*stranger, "changed");
  ASSERT_TRUE(stranger->nameHasOwner(kPublisher));
  settle();
  EXPECT_EQ(observed, "112");
}

TEST_F(NotificationCenterTest, AnybodyMayCallPost) {
  ASSERT_FALSE(darwin.serveCallers());
  ASSERT_FALSE(distributed.serveCallers());
  bool isAnswered = false;
  auto observation =
      darwin.addObserver("changed", SuspensionBehavior::coalesce, [&](std::string_view name) {
        while (!isAnswered && (sd_bus_process(other->get(), nullptr) > 0 ||
                               sd_bus_wait(other->get(), 5'000'000) > 0)) {
        }
        observed.append(name) += isAnswered ? " after its answer;" : " before its answer;";
      });
  const auto slot = other->callAsync(*other->newMethodCall(kDarwin, "Post", "s", {"changed"}),
                                     [&](const BusMessage& reply) {
                                       EXPECT_EQ(reply.signature(), "");
                                       isAnswered = !reply.isError();
                                     });
  // What is posted by a call is nothing of this program's.
  const auto signals = other->addMatch("type='signal',member='Posted'",
                                       [this](const BusMessage&) { observed += "a signal;"; });
  serveUntil([&] { return !observed.empty(); });
  serveAll();
  EXPECT_EQ(observed, "changed after its answer;");

  EXPECT_EQ(call("unknown"), SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(answer(kDarwin, "Post", "si", {"changed", 1}).errorName(), SD_BUS_ERROR_INVALID_ARGS);
  observation.reset();
  EXPECT_EQ(call("changed"), "") << "it was observed once";
  EXPECT_EQ(observed, "changed after its answer;");

  const auto measured = distributed.addObserver("measure", [this](const Notification& received) {
    observed = received.object.value_or("none") + std::to_string(intForKey(received.userInfo, "n"));
  });
  const BusAddress address{own->uniqueName(), "/org/corvale/DistributedNotificationCenter",
                           "org.corvale.DistributedNotificationCenter"};
  for (const auto& [object, expected] : {std::pair("", "none7"), std::pair("band", "band7")}) {
    EXPECT_FALSE(
        answer(address, "Post", "ssa{sv}", {"measure", object, Dictionary{{"n", 7}}}).isError());
    EXPECT_EQ(observed, expected);
  }
  const auto xml = answer(
      {address.destination, address.path, "org.freedesktop.DBus.Introspectable"}, "Introspect");
  for (const char* part : {"method name=\"Post\"", "signal name=\"Posted\"",
                           "<arg type=\"a{sv}\" name=\"userInfo\" direction=\"in\"/>"}) {
    EXPECT_NE(xml.arguments().value()[0].text()->find(part), std::string::npos) << part;
  }
}

}  // namespace
}  // namespace wrixel2::platform::linux
