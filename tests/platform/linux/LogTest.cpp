#include <array>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/StderrLog.h"
#include "platform/linux/SyslogLog.h"
#include "platform/linux/SystemdServiceManager.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

TEST(LogTest, StandardErrorHasOneLineAnEntry) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  StderrLog log("wrixel2d", true, ends[1]);
  log.write(LogLevel::warning, "main", 12, "two\nlines\tand \x1b[31m \xC3\xA9");
  log.write(
      LogLevel::info, "main", 13,
      "\xC2\x9B \u061C\u200E\u200F\u2028\u202E\u2066\u2069 \xC2\xA0\u2027\u206A \xFF\xE2\x80");
  log.writePlain("plain");
  ::close(ends[1]);
  std::array<char, 256> buffer{};
  const auto size = ::read(ends[0], buffer.data(), buffer.size() - 1);
  ::close(ends[0]);
  EXPECT_GT(size, 0);
  EXPECT_STREQ(buffer.data(),
               "[wrixel2d: main:12] WARN: two\\nlines\\tand \\x1b[31m \xC3\xA9\n"
               "[wrixel2d: main:13] INFO: \\u009b "
               "\\u061c\\u200e\\u200f\\u2028\\u202e\\u2066\\u2069 \xC2\xA0\u2027\u206A "
               "\\xff\\xe2\\x80\nplain\n");
  EXPECT_EQ(log.privateText("secret"), "secret");
  EXPECT_EQ(SyslogLog("wrixel2d", false).privateText("secret"), "<private>");
}

TEST(ServiceManagerTest, TheManagerIsTold) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("notify");
  const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  SystemdServiceManager manager;
  manager.notifyReady();
  manager.notifyStatus("connected\nREADY=0");
  ::unsetenv("NOTIFY_SOCKET");
  for (const char* expected : {"READY=1", "STATUS=connected READY=0"}) {
    std::array<char, 128> buffer{};
    EXPECT_GT(::recv(receiver, buffer.data(), buffer.size() - 1, MSG_DONTWAIT), 0);
    EXPECT_STREQ(buffer.data(), expected);
  }
  ::close(receiver);
}

}  // namespace
}  // namespace wrixel2::platform::linux
