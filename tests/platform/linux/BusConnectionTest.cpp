#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/linux/LinuxPlatform.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

class BusConnectionTest : public BusTest {
 public:
  BusConnectionTest() { ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1); }
  ~BusConnectionTest() override { ::unsetenv("DBUS_SESSION_BUS_ADDRESS"); }
};

TEST_F(BusConnectionTest, TheSessionBusIsFoundThroughTheEnvironment) {
  struct Case {
    const char* address;
    const char* runtimeDirectory;
    const char* error;  ///< a part of it; none where a bus is found
  };
  const TemporaryDirectory directory;
  const std::string socket = bus.address().substr(bus.address().find('/'));
  const std::string target = socket.substr(0, socket.find(','));
  const std::string odd = directory.path("a b,c");
  std::filesystem::create_directory(odd);
  std::filesystem::create_symlink(target, odd + "/bus");
  const Case cases[] = {{bus.address().c_str(), nullptr, nullptr},
                        {nullptr, odd.c_str(), nullptr},
                        {nullptr, "/nowhere", "/nowhere/bus cannot be reached"},
                        {"nonsense", nullptr, "nonsense cannot be reached"},
                        {nullptr, nullptr, "There is no session bus"}};
  for (const auto& item : cases) {
    const auto set = [](const char* name, const char* value) {
      value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
    };
    set("DBUS_SESSION_BUS_ADDRESS", item.address);
    set("XDG_RUNTIME_DIR", item.runtimeDirectory);
    const auto connection = BusConnection::openSession(loop);
    ASSERT_EQ(static_cast<bool>(connection), item.error == nullptr) << item.error;
    if (!connection) {
      EXPECT_NE(connection.error().localizedDescription.find(item.error), std::string::npos)
          << connection.error().localizedDescription;
    }
  }
}

TEST_F(BusConnectionTest, ADroppedCallIsNotAnswered) {
  const BusAddress driver{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
  int answers = 0;
  {
    const auto dropped =
        own->callAsync(*own->newMethodCall(driver, "GetId"), [&](const BusMessage&) { ++answers; });
  }
  auto detached =
      own->callAsync(*own->newMethodCall(driver, "GetId"), [&](const BusMessage&) { ++answers; });
  detached->detach();
  BusSlot failing;
  failing = std::move(*own->callAsync(*own->newMethodCall({"org.example.Nobody", "/a", "a.b"}, "C"),
                                      [&](const BusMessage& reply) {
                                        EXPECT_EQ(reply.errorName(), SD_BUS_ERROR_SERVICE_UNKNOWN);
                                        failing.reset();  // its own, while it is called
                                        ++answers;
                                      }));
  serveUntil([&] { return answers == 2; });
  serveAll();
  EXPECT_EQ(answers, 2);
  EXPECT_FALSE(own->newMethodCall({"no name", "no path", "no interface"}, "C"));
}

TEST_F(BusConnectionTest, AMonitorSeesTheCallsOfOthers) {
  std::vector<std::string> seen;
  auto monitor = BusConnection::openSessionMonitor(
      loop, {"interface='org.example.Notifications',member='Notify'"},
      [&](const BusMessage& message) {
        seen.push_back(std::string(message.member()) + " " + *message.arguments()->front().text());
      });
  ASSERT_TRUE(monitor) << monitor.error().localizedDescription;
  const BusAddress address{other->uniqueName(), "/a", "org.example.Notifications"};
  for (const char* member : {"Notify", "Other"}) {
    auto call = own->newMethodCall(address, member, "s", {"text"});
    ASSERT_FALSE(own->send(*call));
  }
  serveUntil([&] { return !seen.empty(); });
  serveAll();
  EXPECT_EQ(seen, std::vector<std::string>{"Notify text"});
  bool isOver = false;
  (*monitor)->onDisconnected([&] { isOver = true; });
  bus.stop();
  serveUntil([&] { return isOver; });
}

class NoRadio final : public BluetoothRadio {
  std::unique_ptr<CentralManager> makeCentralManager(std::weak_ptr<CentralManagerDelegate>, Queue,
                                                     const std::vector<UUID>&) override {
    return nullptr;
  }
};

TEST_F(BusConnectionTest, APlatformWithoutItsBusEndsTheProgram) {
  const TemporaryDirectory root;
  LinuxPlatformOptions options;
  options.logTarget = LogTarget::standardError;
  options.root = root.path();
  ::setenv("HOME", "/nonexistent", 1);
  auto platform = LinuxPlatform::create(options);
  ASSERT_TRUE(platform) << platform.error().localizedDescription;
  NoRadio radio;
  const auto handle = (*platform)->platform(radio);
  EXPECT_EQ(handle.systemInfo.systemVersion, "9.0");
  handle.userDefaults.setObjectForKey("key", Array{"a"});
  handle.userDefaults.synchronize();
  EXPECT_TRUE(handle.fileManager.fileExistsAtPath(
      root.path("var/mobile/Library/Preferences/org.corvale.wrixel2d.plist")));

  testing::internal::CaptureStderr();
  bus.stop();
  EXPECT_EQ((*platform)->runLoop().run(), 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("] ERROR: The session bus is gone\n"),
            std::string::npos);
  handle.darwinNotifyCenter.post("name");
  EXPECT_FALSE(
      handle.messageCenters.centerNamed("org.example.A")->sendMessageAndReceiveReplyName("a"));

  EXPECT_FALSE(LinuxPlatform::create(options));
}

TEST_F(BusConnectionTest, ThePathsAreTheUsersOrThePhones) {
  ::setenv("HOME", "/home/user", 1);
  ::unsetenv("XDG_STATE_HOME");
  ::setenv("XDG_DATA_HOME", "relative/is/ignored", 1);
  auto paths = LinuxPaths::standard(std::nullopt);
  ASSERT_TRUE(paths);
  EXPECT_EQ(paths->lockFile, "/home/user/.local/state/wrixel2/org.corvale.wrixel2.lock.plist");
  EXPECT_EQ(paths->userDefaults, "/home/user/.local/state/wrixel2/defaults.plist");
  EXPECT_EQ(paths->healthDatabase, "/home/user/.local/share/wrixel2/health.sqlite");
  ::setenv("XDG_STATE_HOME", "/state", 1);
  EXPECT_EQ(LinuxPaths::standard(std::nullopt)->userDefaults, "/state/wrixel2/defaults.plist");
  paths = LinuxPaths::standard("/root");
  EXPECT_EQ(paths->lockFile, "/root/var/mobile/Library/Preferences/org.corvale.wrixel2.lock.plist");
  EXPECT_EQ(paths->userDefaults, "/root/var/mobile/Library/Preferences/org.corvale.wrixel2d.plist");
  EXPECT_EQ(paths->infoPlist, "/root/System/Library/CoreServices/SpringBoard.app/Info.plist");
  // Without HOME it is the home directory of the user database.
  ::unsetenv("HOME");
  paths = LinuxPaths::standard(std::nullopt);
  ASSERT_TRUE(paths);
  EXPECT_EQ(paths->healthDatabase,
            std::string(::getpwuid(::getuid())->pw_dir) + "/.local/share/wrixel2/health.sqlite");
  ::unsetenv("XDG_DATA_HOME");
  ::unsetenv("XDG_STATE_HOME");
}

}  // namespace
}  // namespace wrixel2::platform::linux
