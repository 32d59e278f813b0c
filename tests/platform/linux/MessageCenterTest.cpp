#include <future>
#include <thread>

#include "platform/linux/BusValues.h"
#include "platform/linux/SdBusDarwinNotifyCenter.h"
#include "platform/linux/SdBusMessageCenter.h"
#include "platform/linux/SdBusMessageCenters.h"
#include "platform/linux/SdBusObjectExporter.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kName = "org.example.Center";
const BusAddress kAddress{kName, "/org/example/Center", kName};

class MessageCenterTest : public BusTest {
 protected:
  MessageCenterTest() {
    center.registerForMessageName("note", [this](std::string_view name, const Dictionary& info) {
      received.emplace_back(name, info);
    });
    center.registerForMessageNameWithReply(
        "ask", [](std::string_view, const Dictionary& info) -> Result<Dictionary> {
          if (boolForKey(info, "fail")) {
            return Error{EOPNOTSUPP, "not today"};
          }
          return Dictionary{{"answer", intForKey(info, "question") + 1}};
        });
    EXPECT_FALSE(center.runServer());
  }

  /// The answer to a message with such user info.
  BusMessage ask(std::string_view name, const Dictionary& info = {}) {
    return answer(kAddress, name, "a{sv}", {info});
  }

  std::vector<std::pair<std::string, Dictionary>> received;
  SdBusMessageCenter center{*own, log, kName};
};

TEST_F(MessageCenterTest, MessagesReachTheirHandlersAndReplies) {
  const Dictionary info = {
      {"text", "a"}, {"list", Array{"b", 2}}, {"nested", Dictionary{{"c", Bytes{3}}}}};
  const auto reply = ask("note", info);
  EXPECT_EQ(reply.signature(), "a{sv}");
  EXPECT_EQ(*reply.arguments(), Array{Dictionary()});
  ASSERT_EQ(received.size(), 1U);
  EXPECT_EQ(received[0].first, "note");
  EXPECT_EQ(received[0].second, info);

  EXPECT_EQ(*ask("ask", {{"question", 41}}).arguments(), (Array{Dictionary{{"answer", 42}}}));
  EXPECT_EQ(ask("ask", {{"fail", true}}).errorName(), SD_BUS_ERROR_NOT_SUPPORTED);
}

TEST_F(MessageCenterTest, TheSenderIsAnsweredBeforeTheHandlerRuns) {
  bool isAnswered = false;
  bool wasAnsweredFirst = false;
  center.registerForMessageName("wait", [&](std::string_view, const Dictionary&) {
    while (!isAnswered && sd_bus_wait(other->get(), 5'000'000) > 0) {
      while (sd_bus_process(other->get(), nullptr) > 0) {
      }
    }
    wasAnsweredFirst = isAnswered;
  });
  auto slot = other->callAsync(*other->newMethodCall(kAddress, "wait", "a{sv}", {Dictionary()}),
                               [&](const BusMessage&) { isAnswered = true; });
  serveUntil([&] { return isAnswered; });
  EXPECT_TRUE(wasAnsweredFirst);
}

TEST_F(MessageCenterTest, ACallThatExpectsNoReplyGetsNone) {
  std::vector<std::string> replies;
  auto filter = other->addFilter([&](const BusMessage& message) {
    if (!message.isMethodCall() && !message.isSignal() && message.sender() == own->uniqueName()) {
      replies.emplace_back(message.errorName());
    }
  });
  for (const char* name : {"note", "ask", "unknown"}) {
    auto message = other->newMethodCall(kAddress, name, "a{sv}", {Dictionary()});
    message->setExpectsReply(false);
    ASSERT_FALSE(other->send(*message));
  }
  ask("note");
  EXPECT_EQ(received.size(), 2U);
  EXPECT_EQ(replies, std::vector<std::string>{""});
}

TEST_F(MessageCenterTest, MisuseIsRefusedWithAWarningAndReachesNoHandler) {
  const auto expectRefusal = [this](const BusMessage& reply, std::string_view error,
                                    std::string_view warning) {
    EXPECT_EQ(reply.errorName(), error) << warning;
    EXPECT_EQ(log.count("WARN"), 1U) << warning;
    EXPECT_TRUE(log.contains(warning)) << warning;
    log.lines.clear();
  };
  expectRefusal(ask("unknown"), SD_BUS_ERROR_UNKNOWN_METHOD, "Unknown message unknown");
  const struct {
    const char* signature;
    Array arguments;
    const char* warning;
  } cases[] = {{"", {}, "has arguments \"\""},
               {"s", {"text"}, "has arguments \"s\""},
               {"a{ss}", {Dictionary()}, "has arguments \"a{ss}\""},
               {"a{sv}a{sv}", {Dictionary(), Dictionary()}, "note"}};
  for (const auto& [signature, arguments, warning] : cases) {
    expectRefusal(answer(kAddress, "note", signature, arguments), SD_BUS_ERROR_INVALID_ARGS,
                  warning);
  }

  // Without an interface.
  sd_bus_message* raw = nullptr;
  sd_bus_message_new_method_call(other->get(), &raw, kName, kAddress.path.c_str(), nullptr, "note");
  auto vague = BusMessage::adopting(raw);
  ASSERT_FALSE(vague.append("a{sv}", {Dictionary()}));
  expectRefusal(answer(std::move(vague)), SD_BUS_ERROR_UNKNOWN_OBJECT, "Unknown message note");

  // Nested too deeply.
  auto deep = other->newMethodCall(kAddress, "note");
  raw = deep->get();
  sd_bus_message_open_container(raw, 'a', "{sv}");
  sd_bus_message_open_container(raw, 'e', "sv");
  sd_bus_message_append(raw, "s", "key");
  for (int level = 0; level < kMaximumBusDepth; ++level) {
    sd_bus_message_open_container(raw, 'v', level + 1 < kMaximumBusDepth ? "v" : "s");
  }
  sd_bus_message_append(raw, "s", "core");
  for (int level = 0; level < kMaximumBusDepth + 2; ++level) {
    sd_bus_message_close_container(raw);
  }
  expectRefusal(answer(std::move(*deep)), SD_BUS_ERROR_INVALID_ARGS, "The message note");
  EXPECT_TRUE(received.empty());
}

TEST_F(MessageCenterTest, OneNameHasOneServer) {
  {
    SdBusMessageCenter second(*other, log, kName);
    const auto error = second.runServer();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, EEXIST);
    EXPECT_NE(error->localizedDescription.find(kName), std::string::npos);
  }
  EXPECT_FALSE(ask("note").isError());

  auto passing = std::make_unique<SdBusMessageCenter>(*own, log, "org.example.Passing");
  ASSERT_FALSE(passing->runServer());
  passing.reset();
  SdBusMessageCenter next(*other, log, "org.example.Passing");
  EXPECT_FALSE(next.runServer());
}

TEST_F(MessageCenterTest, MessagesCanBeRegisteredWhileServing) {
  std::vector<std::string> handled;
  center.registerForMessageName("late", [&](std::string_view, const Dictionary&) {
    handled.emplace_back("late");
    // Inside the call, and for the very message too.
    center.registerForMessageName(
        "late", [&](std::string_view, const Dictionary&) { handled.emplace_back("changed"); });
    center.registerForMessageName(
        "later", [&](std::string_view name, const Dictionary&) { handled.emplace_back(name); });
  });
  ask("late");
  serveAll();
  EXPECT_FALSE(ask("late").isError());
  EXPECT_FALSE(ask("later").isError());
  EXPECT_EQ(handled, (std::vector<std::string>{"late", "changed", "later"}));
}

TEST_F(MessageCenterTest, AnotherInterfaceSharesTheObject) {
  SdBusObjectExporter exporter(*own);
  ExportedInterface status;
  status.name = "org.example.Status";
  status.properties.push_back({"State", "s", [] { return Value("idle"); }, nullptr});
  const auto exported = exporter.exportObject("", kAddress.path, std::move(status));
  ASSERT_TRUE(exported);
  const auto reply =
      answer({kName, kAddress.path, "org.freedesktop.DBus.Introspectable"}, "Introspect");
  const auto arguments = reply.arguments();
  ASSERT_TRUE(arguments && arguments->size() == 1);
  const auto& xml = *arguments->front().text();
  for (const char* part :
       {"interface name=\"org.example.Center\"", "method name=\"note\"", "method name=\"ask\"",
        "<arg type=\"a{sv}\" name=\"userInfo\" direction=\"in\"/>",
        "<arg type=\"a{sv}\" name=\"reply\" direction=\"out\"/>",
        "interface name=\"org.example.Status\"", "property name=\"State\" type=\"s\""}) {
    EXPECT_NE(xml.find(part), std::string::npos) << part << "\n" << xml;
  }
}

TEST_F(MessageCenterTest, SignalsAndMessagesOfOneSenderKeepTheirOrder) {
  std::string order;
  for (const char* name : {"m", "n"}) {
    center.registerForMessageName(
        name, [&](std::string_view message, const Dictionary&) { order += message; });
  }
  ASSERT_FALSE(other->requestName("org.example.Publisher"));
  BusService publisher(*own, "org.example.Publisher");
  ASSERT_FALSE(publisher.startAndWait());
  SdBusDarwinNotifyCenter ours(*own, log, &publisher);
  ASSERT_FALSE(ours.serveCallers());
  const auto note = [&](std::string_view name) { order += name; };
  const auto before = ours.addObserver("b", SuspensionBehavior::coalesce, note);
  const auto after = ours.addObserver("a", SuspensionBehavior::deliverImmediately, note);
  SdBusDarwinNotifyCenter theirs(*other, log);
  SdBusMessageCenter sender(*other, log, kName);
  theirs.post("b");
  sender.sendMessageName("m");
  theirs.post("a");
  sender.sendMessageName("n");
  const auto call = other->newMethodCall(
      {kName, "/org/corvale/NotifyCenter", "org.corvale.NotifyCenter"}, "Post", "s", {"a"});
  ASSERT_FALSE(other->send(*call));
  theirs.post("b");
  serveUntil([&] { return order.size() == 6; });
  EXPECT_EQ(order, "bmanab");
}

TEST_F(MessageCenterTest, NobodyThereIsKnownAtOnceAndASilentServerCostsNoMoreThanTheTimeout) {
  SdBusMessageCenter toNobody(*own, log, "org.example.Nobody");
  const auto reply = toNobody.sendMessageAndReceiveReplyName("ask");
  ASSERT_FALSE(reply);
  EXPECT_NE(reply.error().localizedDescription.find(SD_BUS_ERROR_NAME_HAS_NO_OWNER),
            std::string::npos)
      << reply.error().localizedDescription;
  toNobody.sendMessageName("note");
  serveAll();
  EXPECT_TRUE(log.lines.empty());

  ASSERT_FALSE(other->requestName("org.example.Silent"));
  SdBusMessageCenter asking(*own, log, "org.example.Silent", std::chrono::milliseconds(20));
  EXPECT_EQ(asking.sendMessageAndReceiveReplyName("ask").error().code, ETIMEDOUT);
  EXPECT_EQ(SdBusMessageCenter::kReplyTimeout, std::chrono::seconds(2));
}

TEST_F(MessageCenterTest, AnAnswerIsCalledBackWithHoweverItCame) {
  std::vector<std::string> answers;
  std::vector<std::unique_ptr<PendingAnswer>> pending;
  const auto send = [&](SdBusMessageCenter& sender, const char* name, const Dictionary& info) {
    auto sent = sender.sendMessageNameForAnswer(name, info, [&](const Result<Dictionary>& answer) {
      answers.push_back(answer ? "answer " + std::to_string(intForKey(*answer, "answer"))
                               : "error " + std::to_string(answer.error().code));
    });
    ASSERT_TRUE(sent);
    pending.push_back(std::move(*sent));
  };
  const auto next = [&] {
    serveUntil([&] { return !answers.empty(); });
    return answers.empty() ? "" : std::exchange(answers, {}).front();
  };
  SdBusMessageCenter toCenter(*other, log, kName);
  send(toCenter, "note", {{"text", "a"}});
  EXPECT_EQ(next(), "answer 0");
  EXPECT_EQ(received.size(), 1U);
  send(toCenter, "ask", {{"question", 41}});
  EXPECT_EQ(next(), "answer 42");
  send(toCenter, "ask", {{"fail", true}});
  EXPECT_EQ(next(), "error " + std::to_string(EOPNOTSUPP));

  SdBusMessageCenter toNobody(*other, log, "org.example.Nobody");
  send(toNobody, "note", {});
  EXPECT_EQ(next(), "error " + std::to_string(MessageCenter::kNobodyServes));

  // One that has the name and goes without having answered.
  auto dying = open();
  ASSERT_FALSE(dying->requestName("org.example.Dying"));
  SdBusMessageCenter toDying(*other, log, "org.example.Dying");
  send(toDying, "note", {});
  ASSERT_TRUE(other->nameHasOwner("org.example.Dying")) << "the bus has passed it on";
  sd_bus_close(dying->get());
  EXPECT_EQ(next(), "error " + std::to_string(MessageCenter::kServerIsGone));

  send(toCenter, "note", {{"text", "b"}});
  pending.clear();
  serveAll();
  EXPECT_EQ(received.size(), 2U) << "the answer is dropped, the message is not";
  EXPECT_TRUE(answers.empty());
}

// The program at the other end of synchronous requests, on a thread because the asking loop waits.
class ServingThread {
 public:
  ServingThread(const std::string& address, std::function<void(BusConnection&)> beforeReply)
      : thread_([this, address, beforeReply = std::move(beforeReply)] {
          serve(address, beforeReply);
        }) {
    ready_.get_future().wait();
  }
  /// After the message "stop".
  ~ServingThread() { thread_.join(); }

 private:
  void serve(const std::string& address, const std::function<void(BusConnection&)>& beforeReply) {
    RecordingLog log;
    LocalTimeZone zone;
    LinuxRunLoop loop(log, zone);
    const auto connection = BusConnection::openAddress(loop, address);
    SdBusMessageCenter center(**connection, log, "org.example.Served");
    center.registerForMessageNameWithReply(
        "ask", [&](std::string_view, const Dictionary& info) -> Result<Dictionary> {
          beforeReply(**connection);
          return Dictionary{{"asked", info}};
        });
    center.registerForMessageName("stop",
                                  [&](std::string_view, const Dictionary&) { loop.stop(0); });
    EXPECT_FALSE(center.runServer());
    ready_.set_value();
    loop.run();
  }

  std::promise<void> ready_;
  std::thread thread_;
};

TEST_F(MessageCenterTest, WhatArrivesDuringARequestWaitsInOrder) {
  std::string order;
  center.registerForMessageName("meanwhile",
                                [&](std::string_view, const Dictionary&) { order += "m"; });
  BusService publisher(*own, "org.example.Served");
  ASSERT_FALSE(publisher.startAndWait());
  SdBusDarwinNotifyCenter notifications(*own, log, &publisher);
  const auto observation = notifications.addObserver("changed", SuspensionBehavior::coalesce,
                                                     [&](std::string_view) { order += "c"; });
  const ServingThread server(bus.address(), [](BusConnection& connection) {
    RecordingLog unused;
    SdBusDarwinNotifyCenter(connection, unused).post("changed");
    SdBusMessageCenter(connection, unused, kName).sendMessageName("meanwhile");
  });
  const auto asking = SdBusMessageCenters(*own, log).centerNamed("org.example.Served");
  const auto reply = asking->sendMessageAndReceiveReplyName("ask", {{"key", "value"}});
  asking->sendMessageName("stop");
  ASSERT_TRUE(reply);
  EXPECT_EQ(*reply, (Dictionary{{"asked", Dictionary{{"key", "value"}}}}));
  EXPECT_EQ(order, "");
  serveUntil([&] { return order.size() == 2; });
  EXPECT_EQ(order, "cm");
}

}  // namespace
}  // namespace wrixel2::platform::linux
