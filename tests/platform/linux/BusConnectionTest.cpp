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
  const TemporaryDirectory directory;
  const std::string socket = bus.address().substr(bus.address().find('/'));
  const std::string target = socket.substr(0, socket.find(','));
  const std::string odd = directory.path("a b,c");
  std::filesystem::create_directory(odd);
  std::filesystem::create_symlink(target, odd + "/bus");
  const struct {
    const char* address;
    const char* runtimeDirectory;
    const char* error;  ///< a part of it; none where a bus is found
  } cases[] = {{bus.address().c_str(), nullptr, nullptr},
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
  int answers = 0;
  const auto getId = [&] {
    return own->callAsync(*own->newMethodCall(kDriver, "GetId"),
                          [&](const BusMessage&) { ++answers; });
  };
  getId()->reset();
  getId()->detach();
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

class NoRadio final : public BluetoothRadio {
  std::unique_ptr<CentralManager> makeCentralManager(std::weak_ptr<CentralManagerDelegate>, Queue,
                                                     const std::vector<UUID>&) override {
    return nullptr;
  }
};

TEST_F(BusConnectionTest, APlatformWhoseBusIsGoneEndsItsLoopAndSendsNothing) {
  const TemporaryDirectory root;
  LinuxPlatformOptions options;
  options.logTarget = LogTarget::standardError;
  options.root = root.path();
  const auto platform = LinuxPlatform::create(options);
  ASSERT_TRUE(platform) << platform.error().localizedDescription;
  NoRadio radio;
  const auto handle = (*platform)->platform(radio);
  bus.stop();
  EXPECT_EQ((*platform)->runLoop().run(), 1);
  handle.darwinNotifyCenter.post("name");
  EXPECT_FALSE(
      handle.messageCenters.centerNamed("org.example.A")->sendMessageAndReceiveReplyName("a"));
  EXPECT_FALSE(LinuxPlatform::create(options));
}

TEST_F(BusConnectionTest, ThePathsAreTheUsersOrThePhones) {
  ::setenv("HOME", "/home/user", 1);
  ::setenv("XDG_DATA_HOME", "relative/is/ignored", 1);
  const std::string preferences = "/root/var/mobile/Library/Preferences/org.corvale.wrixel2";
  auto paths = LinuxPaths::standard(std::nullopt);
  ASSERT_TRUE(paths);
  EXPECT_EQ(paths->lockFile, "/home/user/.local/state/wrixel2/org.corvale.wrixel2.lock.plist");
  EXPECT_EQ(paths->userDefaults, "/home/user/.local/state/wrixel2/defaults.plist");
  EXPECT_EQ(paths->healthDatabase, "/home/user/.local/share/wrixel2/health.sqlite");
  paths = LinuxPaths::standard("/root");
  EXPECT_EQ(paths->lockFile, preferences + ".lock.plist");
  EXPECT_EQ(paths->userDefaults, preferences + "d.plist");
  EXPECT_EQ(paths->infoPlist, "/root/System/Library/CoreServices/SpringBoard.app/Info.plist");
  // Without HOME it is the home directory of the user database.
  ::unsetenv("HOME");
  ::setenv("XDG_STATE_HOME", "/state", 1);
  paths = LinuxPaths::standard(std::nullopt);
  EXPECT_EQ(paths->userDefaults, "/state/wrixel2/defaults.plist");
  EXPECT_EQ(paths->healthDatabase,
            std::string(::getpwuid(::getuid())->pw_dir) + "/.local/share/wrixel2/health.sqlite");
  ::unsetenv("XDG_DATA_HOME");
  ::unsetenv("XDG_STATE_HOME");
}

}  // namespace
}  // namespace wrixel2::platform::linux
