#include <string>
#include <vector>

#include <stdlib.h>

#include "companion/DaemonWatch.h"
#include "companion/Senses.h"
#include "platform/linux/SdBusMessageCenters.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedUserDefaults.h"
#include "tests/companion/Doubles.h"
#include "tests/companion/FakeCallServices.h"
#include "tests/companion/ServiceTest.h"

namespace wrixel2::companion {
namespace {

using platform::Dictionary;
using platform::Value;
using platform::linux::BusConnection;
using Lines = std::vector<std::string>;

/// The senses between a session bus, with a daemon on it, and a system bus that may be away.
class SensesTest : public ServiceTest {
 protected:
  SensesTest() {
    // Without the identifier that a bus gets anew at each start.
    const std::string address = system.address().substr(0, system.address().find(','));
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    daemon->registerForMessageName("phoneCall", [this](std::string_view, const Dictionary& info) {
      told.push_back(platform::textForKey(info, "text").value_or("hanged"));
    });
    EXPECT_EQ(daemon->runServer(), std::nullopt);
    add("/org/corvale/wrixel2dIpc", {"org.corvale.wrixel2d.Status",
                                     {},
                                     {{"State", "s", [] { return Value("idle"); }, nullptr},
                                      {"Battery", "y", [] { return Value(14); }, nullptr}},
                                     {}});
  }
  ~SensesTest() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

  void makeSenses() {
    senses = std::make_unique<Senses>(
        Senses::Surroundings{loop, clock, log, *own, centers, userAlerts, defaults, logindLock});
    senses->setSettings({});
    senses->daemonIsReady();
  }
  void makeModem() {
    systemBus = std::move(*BusConnection::openAddress(loop, system.address()));
    modem = FakeCallService::named("org.freedesktop.ModemManager1", *systemBus);
    modem->appear();
  }
  void expectTold(const Lines& lines) {
    serveUntil([&] { return told.size() >= lines.size(); });
    EXPECT_EQ(std::exchange(told, {}), lines);
  }

  platform::linux::PrivateBus system;
  platform::simulated::SimulatedClock clock;
  platform::linux::SdBusMessageCenters centers{*own, log};
  platform::linux::SdBusMessageCenters daemonsCenters{*other, log};
  std::unique_ptr<platform::MessageCenter> daemon =
      daemonsCenters.centerNamed("org.corvale.wrixel2dIpc");
  FakeUserAlerts userAlerts;
  platform::simulated::SimulatedUserDefaults defaults;
  std::unique_ptr<BusConnection> systemBus;
  std::unique_ptr<FakeCallService> modem;
  Lines told;
  LogindLock logindLock;
  std::unique_ptr<Senses> senses;
};

TEST_F(SensesTest, LivesWithASystemBusThatComesAndGoes) {
  system.stop();
  makeSenses();
  serveUntil([this] {
    return log.contains("WARN Without the system bus neither calls of the modem nor logind");
  });
  // Calls that the phone app knows of are seen all the same.
  auto app = FakeCallService::named("org.gnome.Calls", *other);
  app->appear();
  const auto call = app->add(CallState::incoming, "+491", "Anna");
  expectTold({"Anna"});
  app->setState(call, CallState::over);
  expectTold({"hanged"});
  app->vanish();

  for (int life = 0; life < 2; ++life) {
    clock.advance(std::chrono::seconds(3));  // else it might be the call before, seen late
    system.start();
    makeModem();
    modem->add(CallState::incoming, "+49" + std::to_string(life), "");
    expectTold({"+49" + std::to_string(life)});
    modem.reset();
    systemBus.reset();
    system.stop();
    expectTold({"hanged"});
  }
}

TEST_F(SensesTest, TellsTheOwnerOfALowBattery) {
  makeSenses();
  serveUntil([this] { return !userAlerts.presented.empty(); });
  EXPECT_EQ(userAlerts.presented, Lines{"Band battery low: 14 % left"});
}

TEST_F(SensesTest, EachDaemonIsReadyOnce) {
  std::string said;
  const auto watch = [&] {
    return std::make_unique<DaemonWatch>(
        *own, [&said] { said += "ready;"; }, [&said] { said += "gone;"; });
  };
  const auto saidSince = [&] {
    settle();
    return std::exchange(said, {});
  };
  auto watching = watch();
  EXPECT_EQ(said, "");
  EXPECT_EQ(saidSince(), "ready;");
  vanish("org.corvale.wrixel2dIpc");
  EXPECT_EQ(saidSince(), "gone;");
  watching = watch();
  EXPECT_EQ(saidSince(), "ready;") << "there is none";
  appear("org.corvale.wrixel2dIpc");
  EXPECT_EQ(saidSince(), "gone;ready;") << "what was for none must wait for it";
}

}  // namespace
}  // namespace wrixel2::companion
