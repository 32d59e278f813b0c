#pragma once

#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "platform/linux/BusConnection.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "tests/platform/linux/PrivateBus.h"
#include "tests/platform/linux/RecordingLog.h"

namespace wrixel2::platform::linux {

inline const BusAddress kDriver{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus"};

/// One loop with two connections to a private bus: our own, and that of another program.
class BusTest : public testing::Test {
 protected:
  BusTest() : own(open()), other(open()) {}

  std::unique_ptr<BusConnection> open() {
    auto connection = BusConnection::openAddress(loop, bus.address());
    EXPECT_TRUE(connection) << (connection ? "" : connection.error().localizedDescription);
    return connection ? std::move(*connection) : nullptr;
  }

  /// Fails the test when it does not come true; there is no waiting for its own sake.
  void serveUntil(const std::function<bool()>& condition) {
    EXPECT_TRUE(loop.runUntil(condition, std::chrono::seconds(10)));
  }

  /// The answer to a call by the other program.
  BusMessage answer(BusMessage message) {
    std::unique_ptr<BusMessage> reply;
    auto slot = other->callAsync(message, [&](const BusMessage& received) {
      reply = std::make_unique<BusMessage>(BusMessage::referringTo(received.get()));
    });
    serveUntil([&] { return reply != nullptr; });
    return std::move(*reply);
  }
  BusMessage answer(const BusAddress& address, std::string_view member,
                    std::string_view signature = {}, const Array& arguments = {}) {
    return answer(std::move(*other->newMethodCall(address, member, signature, arguments)));
  }

  /// Serves whatever had reached the bus before.
  void serveAll() {
    answer(kDriver, "GetId");
    bool isAnswered = false;
    auto request = own->newMethodCall(kDriver, "GetId");
    auto slot = own->callAsync(*request, [&](const BusMessage&) { isAnswered = true; });
    serveUntil([&] { return isAnswered; });
    bool isDone = false;
    loop.post([&] { isDone = true; });
    serveUntil([&] { return isDone; });
  }

  /// Whatever follows from what follows, through several rounds of questions and answers.
  void settle() {
    for (int round = 0; round < 30; ++round) {
      serveAll();
    }
  }

  PrivateBus bus;
  RecordingLog log;
  LocalTimeZone zone;
  LinuxRunLoop loop{log, zone};
  std::unique_ptr<BusConnection> own;
  std::unique_ptr<BusConnection> other;
};

}  // namespace wrixel2::platform::linux
