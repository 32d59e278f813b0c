#include <algorithm>
#include <filesystem>
#include <memory>

#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "band/VirtualBand.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SystemBus.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/linux/bluez/SdBusBluezBus.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "tests/platform/linux/BusTest.h"
#include "tests/platform/linux/bluez/EventRecorder.h"
#include "tests/platform/linux/bluez/FakeBluetoothd.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

/// Stands in for a radio that is made later.
class LateRadio final : public BluetoothRadio {
 public:
  std::unique_ptr<CentralManager> makeCentralManager(
      std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
      const std::vector<UUID>& storedIdentifiers) override {
    return radio->makeCentralManager(std::move(delegate), std::move(queue), storedIdentifiers);
  }
  std::unique_ptr<BluezRadio> radio;
};

class KnownKey final : public mbservices::KeyProvider {
 public:
  std::string getMiFitAuthId() override { return std::string(band::kDefaultPairingKey); }
};

/// The radio over a real bus to a bluetoothd with a virtual band on the air. What stands above the
/// bus runs on virtual time.
class SdBusTest : public linux::BusTest {
 protected:
  ~SdBusTest() override {
    manager.reset();
    phone.runLoop.discardWork();
  }

  void makeRadio(const std::string& address) {
    late.radio = std::make_unique<BluezRadio>(
        [this, address] { return std::make_unique<SdBusBluezBus>(loop, phone.log, address); },
        phone.runLoop, phone.clock, phone.log, std::nullopt);
  }
  void makeManager(const std::string& address) {
    makeRadio(address);
    manager = late.makeCentralManager(recorder, phone.runLoop.makeSerialQueue("test"), {});
  }
  /// Serves the bus; each turn lets 5 ms of virtual time pass.
  void serveUntilTrue(const std::function<bool()>& condition) {
    const auto beat = loop.scheduledTimer(1ms, true, [] {});
    serveUntil([&] {
      phone.runLoop.runFor(5ms);
      return condition();
    });
  }
  /// Until the delegate is told. What it was told before is forgotten.
  void await(const std::string& event) {
    serveUntilTrue([&] { return std::ranges::count(recorder->events, event) > 0; });
    EXPECT_FALSE(recorder->events.empty()) << "waiting for " << event;
    recorder->events.clear();
  }
  void expectNoComplaints() { EXPECT_EQ(bluetoothd.complaints, (std::vector<std::string>{})); }
  /// Finds the band, connects it and discovers all of it.
  void connectBand() {
    bluetoothd.appear();
    makeManager(bus.address());
    await("state 5");
    manager->scanForPeripheralsWithServices(std::vector<UUID>{UUID::withString("fee0")}, {});
    serveUntilTrue([&] { return !recorder->found.empty(); });
    ASSERT_FALSE(recorder->found.empty());
    peripheral = recorder->found.front();
    peripheral->setDelegate(recorder);
    manager->stopScan();
    manager->connectPeripheral(peripheral, {});
    await("connected");
    peripheral->discoverServices(std::nullopt);
    serveUntilTrue([&] { return !recorder->events.empty(); });
    for (const auto& service : peripheral->services()) {
      peripheral->discoverCharacteristics(std::nullopt, service);
    }
    await("characteristics 180d - 2a39 2a37");
  }
  std::shared_ptr<Characteristic> characteristic(const UUID& uuid) const {
    return characteristicOf(*peripheral, uuid);
  }

  LateRadio late;
  simulated::SimulatedPlatform phone{&late};
  band::VirtualBand band{phone.handle()};
  FakeBluetoothd bluetoothd{*other, band};
  std::unique_ptr<CentralManager> manager;
  std::shared_ptr<Peripheral> peripheral;
  std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
};

TEST_F(SdBusTest, BringsTheBandFromTheAirToItsValuesAndBack) {
  connectBand();
  expectNoComplaints();

  // Before it is authenticated the band answers nothing but the authentication.
  peripheral->readValueForCharacteristic(characteristic(band::kCurrentTime));
  await("value 2a2b error 5");
  const auto authentication = characteristic(band::kAuthInfo);
  peripheral->setNotifyValue(true, authentication);
  peripheral->writeValueForCharacteristic({0x02, 0x00}, authentication, WriteType::withResponse);
  serveUntilTrue([&] { return authentication->value().has_value(); });
  ASSERT_TRUE(authentication->value());
  EXPECT_EQ(authentication->value()->size(), 19U) << "10 02 01 and a random number";
  recorder->events.clear();

  bluetoothd.endLinkBecause("org.bluez.Reason.Timeout");
  await("disconnected 6");
  serveUntilTrue([&] { return bluetoothd.calls.back() == "StopNotify"; });
  manager->connectPeripheral(peripheral, {});
  await("connected");
  manager->cancelPeripheralConnection(peripheral);
  await("disconnected -");
  expectNoComplaints();
}

TEST_F(SdBusTest, AnswersWhatIsPendingWhenBluetoothdOrTheBusDiesInsteadOfAnswering) {
  connectBand();
  bluetoothd.diesAt = "ReadValue";
  peripheral->readValueForCharacteristic(characteristic(band::kCurrentTime));
  serveUntilTrue([&] { return recorder->events.size() == 3; });
  EXPECT_EQ(recorder->take(), "value 2a2b error 3, disconnected -, state 1");
  bluetoothd.appear();
  await("state 5");
  manager->connectPeripheral(peripheral, {});
  await("connected");

  manager.reset();
  bluetoothd.vanish();
  recorder = std::make_shared<EventRecorder>();
  connectBand();
  peripheral->readValueForCharacteristic(characteristic(band::kCurrentTime));
  bus.stop(SIGKILL);
  serveUntilTrue([&] { return recorder->events.size() == 3; });
  EXPECT_EQ(recorder->take(), "value 2a2b error 3, disconnected -, state 2");
}

TEST_F(SdBusTest, FollowsBluetoothdAndItsAdapterAndNotWhatOthersSayInItsName) {
  makeManager(bus.address());
  await("state 2");
  bluetoothd.appear();
  await("state 5");
  const std::string adapter(kAdapterInterface);
  const std::string properties = "org.freedesktop.DBus.Properties";
  ASSERT_FALSE(own->emitSignal("/org/bluez/hci0", properties, "PropertiesChanged", "sa{sv}as",
                               {adapter, Dictionary{{"Powered", false}}, Array{}}));
  ASSERT_FALSE(
      other->emitSignal("/org/bluez/hci0", properties, "PropertiesChanged", "s", {adapter}));
  serveUntilTrue([&] { return phone.log.contains(LogLevel::warning, "of the form \"s\""); });
  EXPECT_TRUE(recorder->events.empty());
  bluetoothd.setIsPowered(false);
  await("state 4");
  ASSERT_FALSE(other->emitSignal("/", std::string(kObjectManagerInterface), "InterfacesRemoved",
                                 "oas", {"/org/bluez/hci0", Array{adapter}}));
  await("state 2");
  bluetoothd.vanish();
  await("state 1");
}

TEST_F(SdBusTest, IsReachedAgainWhenTheBusIsBackAndWaitsWithoutWakeUps) {
  // Without the identifier, which is new with each start of the bus.
  makeManager(bus.address().substr(0, bus.address().find(',')));
  await("state 2");
  phone.log.clear();
  bus.stop();
  serveUntilTrue([&] { return phone.log.contains(LogLevel::warning, "system bus"); });
  const auto hasNoTurns = [&] {
    std::size_t looks = 0;  // one at the beginning, one at the end
    return !loop.runUntil([&] { return ++looks > 2; }, 50ms);
  };
  EXPECT_TRUE(hasNoTurns() || hasNoTurns()) << "the end of the bus may still bring a turn or two";
  bus.start();
  auto restarted = open();
  FakeBluetoothd again(*restarted, band);
  again.appear();
  await("state 5");
}

TEST_F(SdBusTest, ABusWhoseDirectoryIsNotThereYetIsFoundWhenItComes) {
  const linux::TemporaryDirectory directory;
  const std::string socket = directory.path("run/dbus/system_bus_socket");
  makeManager("unix:path=" + socket);
  await("state 2");
  bluetoothd.appear();
  std::filesystem::create_directories(directory.path("run/dbus"));
  serveAll();
  std::filesystem::create_symlink(bus.address().substr(10, bus.address().find(',') - 10), socket);
  await("state 5");
}

/// A program at the bus's socket that lets everybody in and says nothing.
class SilentSocket {
 public:
  explicit SilentSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listening_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listening_.get(), 64), 0);
  }

 private:
  linux::FileDescriptor listening_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

/// Notes what a system bus tells.
class BusWitness final : public linux::SystemBusObserver {
 public:
  ErrorOrNone busConnected(linux::BusConnection& connection) override {
    uniqueName = connection.uniqueName();
    return std::nullopt;
  }
  void busUnavailable(const Error& error) override { failures.push_back(error); }

  std::string uniqueName;
  std::vector<Error> failures;
};

constexpr TimeInterval kShortPauses[] = {1ms, 2ms};

TEST_F(SdBusTest, ASystemBusThatSaysNothingIsGivenUpAndTriedAgainUntilOneAnswers) {
  const linux::TemporaryDirectory directory;
  const std::string path = directory.path("socket");
  const std::string elsewhere = bus.address().substr(10, bus.address().find(',') - 10);
  auto silent = std::make_unique<SilentSocket>(path);
  BusWitness witness;
  linux::SystemBus systemBus(loop, witness, "unix:path=" + path, 5ms, kShortPauses);
  systemBus.start();
  serveUntil([&] { return witness.failures.size() >= 3; });
  for (const auto& failure : witness.failures) {
    EXPECT_EQ(failure.code, ETIMEDOUT);
  }
  // Nobody listens any more, and nothing happens to the socket.
  silent.reset();
  witness.failures.clear();
  serveUntil([&] { return witness.failures.size() >= 3; });
  EXPECT_EQ(witness.failures.back().code, ECONNREFUSED);
  EXPECT_EQ(witness.uniqueName, "");

  std::filesystem::remove(path);
  std::filesystem::create_symlink(elsewhere, path);
  serveUntil([&] { return witness.uniqueName.starts_with(':'); });
  witness.failures.clear();
  bus.stop();
  serveUntil([&] { return !witness.failures.empty(); });
}

TEST_F(SdBusTest, ASystemBusIsFoundByAttemptsAloneAndWatchedForWithoutOne) {
  const linux::TemporaryDirectory directory;
  const std::string path = directory.path("socket");
  const std::string elsewhere = bus.address().substr(10, bus.address().find(',') - 10);
  // By attempts: the second transport's file is not watched, only the first's.
  BusWitness tries;
  linux::SystemBus trying(loop, tries, "unix:abstract=" + path + ";unix:path=" + path, 10s,
                          kShortPauses);
  // By the watch: the first pause is longer than this test.
  static constexpr TimeInterval kLongPauses[] = {1h};
  BusWitness watches;
  linux::SystemBus watching(loop, watches, "unix:path=" + path, 10s, kLongPauses);
  trying.start();
  watching.start();
  serveUntil([&] { return !tries.failures.empty() && !watches.failures.empty(); });
  std::filesystem::create_symlink(elsewhere, path);
  serveUntil([&] { return tries.uniqueName != "" && watches.uniqueName != ""; });
  EXPECT_EQ(watches.failures.size(), 1U);
}

TEST_F(SdBusTest, AsksForTheEndOfItsLinksBeforeTheProcessGoes) {
  connectBand();
  late.radio->endLinks();
  manager.reset();
  serveUntilTrue([&] { return band.link() == band::BandLink::disconnected; });
}

TEST_F(SdBusTest, CarriesTheWholeSessionToAnAuthenticatedBand) {
  bluetoothd.appear();
  makeRadio(bus.address());
  mbble::MBHealthKitManager healthKit(phone.healthStore, phone.systemInfo, phone.clock, phone.log);
  KnownKey key;
  const auto session = mbble::MBCentralManager::create(phone.handle(), key, healthKit, {});
  serveUntilTrue(
      [&] { return !session->bands().empty() && session->bands().front()->isInitialized(); });
  EXPECT_EQ(band.link(), band::BandLink::authenticated);
  EXPECT_EQ(session->bands().front()->mac(), band.address());
  expectNoComplaints();
  session->disconnectMi();
  serveUntilTrue([&] { return band.link() == band::BandLink::disconnected; });
}

}  // namespace
}  // namespace wrixel2::platform::bluez
