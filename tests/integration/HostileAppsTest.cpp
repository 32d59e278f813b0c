#include <algorithm>
#include <array>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "SessionTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace wrixel2::integration {
namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

/// Apps that say more than anybody reads.
class HostileAppsTest : public SessionTest {
 protected:
  /// Past our own reading and writing of values, which would take its time over this much. A body
  /// of
  /// "???" is on its way made one that libsystemd refuses, and the bus does not.
  void shout(const std::string& app, const std::string& body) const {
    const auto call = bus_->newMethodCall(platform::linux::kNotificationService, "Notify");
    ASSERT_TRUE(call);
    sd_bus_message* const message = call->get();
    sd_bus_message_set_expect_reply(message, 0);
    ASSERT_GE(sd_bus_message_append(message, "susssasa{sv}i", app.c_str(), 0U, "", "T",
                                    body.c_str(), 0, 0, -1),
              0);
    ASSERT_GE(sd_bus_message_seal(message, 1, 0), 0);
    if (body == "???") {
      const char* inside = nullptr;
      sd_bus_message_skip(message, "suss");
      ASSERT_GT(sd_bus_message_read(message, "s", &inside), 0);
      std::ranges::copy(std::string_view("\uFFFE"), const_cast<char*>(inside));
    }
    ASSERT_GE(sd_bus_send(bus_->get(), message, nullptr), 0);
  }

  static long residentKilobytes(const Program& program) {
    std::ifstream status("/proc/" + std::to_string(program.process()) + "/status");
    for (std::string word; status >> word;) {
      if (long size = 0; word == "VmRSS:" && status >> size) {
        return size;
      }
    }
    return 0;
  }
  std::array<long, 2> memory() const {
    return {residentKilobytes(*daemon_), residentKilobytes(*companion_)};
  }
};

TEST_F(HostileAppsTest, WhateverTheySayTheNextAlertArrivesAndNothingIsKept) {
  writeSettings(
      "connectedMode = 1\n[apps.Chat]\nicon = 29\npreview = true\n[apps.\"*\"]\nicon = 0\n");
  startBoth();
  waitForBand();
  notify("Chat", "Chat", "first");
  waitForText("Chat:first");
  [[maybe_unused]] const auto before = memory();  // of no use under sanitizers
  shout(std::string(17 * kMegabyte, 'a'), "four keys of this make more than a message holds");
  notify("Chat", "Chat", "second");
  waitForText("Chat:second");
  shout("Chat", std::string(68 * kMegabyte, 'b'));
  for (int i = 0; i < 4; ++i) {
    shout("Other", std::to_string(i) + std::string(20 * kMegabyte, 'b'));
  }
  notify("Chat", "Chat", "third");
  waitForText("Chat:third");
  for (int i = 0; i < 256; ++i) {
    shout(std::to_string(i) + std::string(65'536, 'n'), "x");
  }
  shout("Bad", "???");
  notify("Chat", "Chat", "fourth");
  waitForText("Chat:fourth");
  EXPECT_TRUE(daemon_->hasLogged("#Forwaring: Bad"));
  EXPECT_EQ(companion_->timesLogged("is taken as far as it can be read"), 1);
#if !defined(__SANITIZE_ADDRESS__) && !__has_feature(address_sanitizer)
  const auto after = memory();
  EXPECT_LT(after[0], 2 * before[0]) << "kB of the daemon";
  EXPECT_LT(after[1], 2 * before[1]) << "kB of the companion";
#endif
}

}  // namespace
}  // namespace wrixel2::integration
