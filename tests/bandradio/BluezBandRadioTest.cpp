#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "band/VirtualBand.h"
#include "bandradio/BluezBandRadio.h"
#include "bandradio/ManagementSocket.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::bandradio {
namespace {

using platform::Array;
using platform::Bytes;
using platform::ByteView;
using platform::Dictionary;
using platform::linux::BusMessage;

constexpr std::uint16_t kAdapter = 1;
constexpr const char* kAdapterPath = "/org/bluez/hci1";
constexpr const char* kRoot = "/org/corvale/wrixel2/VirtualBand";
constexpr const char* kAuthInfo = "/org/corvale/wrixel2/VirtualBand/service1/char0";
constexpr const char* kBattery = "/org/corvale/wrixel2/VirtualBand/service0/char4";
constexpr std::uint8_t kPlaces = 5;

/// The host's address as on the wire, of the public type.
const Bytes kHost{0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x01};

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

/// The other end of a management socket: keeps the commands, and answers each with the status that
/// is planned for it, else with success.
class FakeKernel {
 public:
  FakeKernel() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
    socket_ = platform::linux::FileDescriptor(ends[0]);
    other = platform::linux::FileDescriptor(ends[1]);
  }

  void event(std::uint16_t code, const Bytes& parameters, std::uint16_t adapter = kAdapter) {
    EXPECT_TRUE(send(code, parameters, adapter));
  }
  void serve() {
    std::array<std::uint8_t, 512> buffer{};
    for (;;) {
      const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
      if (count <= 0) {
        return;
      }
      const auto opcode = static_cast<std::uint16_t>(buffer[0] | buffer[1] << 8U);
      commands.emplace_back(opcode, Bytes(buffer.begin() + 6, buffer.begin() + count));
      auto& planned = statuses[opcode];
      const std::uint8_t status = planned.empty() ? management::kSuccess : planned.front();
      if (!planned.empty()) {
        planned.erase(planned.begin());
      }
      Bytes reply{buffer[0], buffer[1], status};
      if (opcode == management::kReadAdvertisingFeatures) {
        reply = joined(reply, {0, 0, 0, 0, 31, 31, kPlaces, 0});
      }
      send(0x0001, reply, kAdapter);  // nobody may be left to read it
    }
  }

  std::vector<std::pair<std::uint16_t, Bytes>> commands;
  std::map<std::uint16_t, std::vector<std::uint8_t>> statuses;
  platform::linux::FileDescriptor other;

 private:
  bool send(std::uint16_t code, const Bytes& parameters, std::uint16_t adapter) {
    Bytes message;
    for (const std::size_t number : {std::size_t{code}, std::size_t{adapter}, parameters.size()}) {
      message.push_back(static_cast<std::uint8_t>(number));
      message.push_back(static_cast<std::uint8_t>(number >> 8U));
    }
    message = joined(std::move(message), parameters);
    return ::send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(message.size());
  }

  platform::linux::FileDescriptor socket_;
};

/// A band on a radio whose kernel and bluetoothd the test plays.
class BluezBandRadioTest : public platform::linux::BusTest {
 protected:
  BluezBandRadioTest() : band(simulated.handle(), "c8:0f:10:aa:bb:0c") {
    playBluetoothd();
    radio = std::make_unique<BluezBandRadio>(
        band, *own, std::make_unique<ManagementSocket>(loop, std::move(kernel.other), kAdapter),
        kAdapterPath, loop, log);
    EXPECT_FALSE(radio->start());
  }

  void playBluetoothd() {
    platform::linux::BusInterface manager;
    manager.name = "org.bluez.GattManager1";
    manager.methods = {{"RegisterApplication",
                        {{"application", "o"}, {"options", "a{sv}"}},
                        {},
                        [this](const BusMessage& call) {
                          ++registrations;
                          call.reply({}, {});
                        }}};
    auto slot = other->addInterface(kAdapterPath, std::move(manager));
    ASSERT_TRUE(slot);
    bluetoothd = std::move(*slot);
    EXPECT_FALSE(other->requestName("org.bluez"));
  }

  /// Serves until the kernel has been given so many commands, and then what follows from them.
  void serveCommands(std::size_t count) {
    serveUntil([&] {
      kernel.serve();
      return kernel.commands.size() >= count;
    });
    settle();
  }
  void settle() {
    serveAll();
    kernel.serve();
    serveAll();
  }

  void connectHost(const Bytes& flags = {0, 0, 0, 0, 0, 0}) {
    kernel.event(management::kDeviceConnected, joined(kHost, flags));
    settle();
  }
  void disconnectHost() {
    kernel.event(management::kDeviceDisconnected, joined(kHost, {3}));
    settle();
  }
  void onAirAndConnected() {
    serveCommands(2);
    connectHost();
    kernel.commands.clear();
  }

  BusMessage gatt(const char* path, const char* member, const char* signature = "",
                  const Array& arguments = {}) {
    return answer({own->uniqueName(), path, "org.bluez.GattCharacteristic1"}, member, signature,
                  arguments);
  }
  BusMessage write(const char* path, const Bytes& value, const char* type) {
    return gatt(path, "WriteValue", "aya{sv}", {value, Dictionary{{"type", type}}});
  }

  std::vector<std::uint16_t> opcodes() const {
    std::vector<std::uint16_t> all;
    for (const auto& command : kernel.commands) {
      all.push_back(command.first);
    }
    return all;
  }

  platform::simulated::SimulatedPlatform simulated;
  FakeKernel kernel;
  band::VirtualBand band;
  platform::linux::BusSlot bluetoothd;
  int registrations = 0;
  std::unique_ptr<BluezBandRadio> radio;
};

using Opcodes = std::vector<std::uint16_t>;

TEST_F(BluezBandRadioTest, IsOnTheAirOnceItsServicesAreRegistered) {
  serveCommands(2);
  EXPECT_EQ(registrations, 1);
  ASSERT_EQ(opcodes(),
            (Opcodes{management::kReadAdvertisingFeatures, management::kAddAdvertising}));
  Bytes expected{kPlaces, 1,    0,    0,   0,  0,
                 0,       0,    0,    31,  15,  // connectable; lengths of both parts
                 2,       0x01, 0x06,           // flags
                 27,      0xFF, 0x57, 0x01};    // the manufacturer's entry ...
  expected.resize(expected.size() + 18);
  expected = joined(expected, {0xC8, 0x0F, 0x10, 0xAA, 0xBB, 0x0C});  // ... ends with the address
  expected = joined(expected, {10, 0x09, 'M', 'I', ' ', 'B', 'a', 'n', 'd', ' ', '2'});
  expected = joined(expected, {3, 0x03, 0xE0, 0xFE});
  EXPECT_EQ(kernel.commands[1].second, expected);
}

TEST_F(BluezBandRadioTest, ShowsBluetoothdTheBandsServices) {
  const auto reply =
      answer({own->uniqueName(), kRoot, "org.freedesktop.DBus.ObjectManager"}, "GetManagedObjects");
  const Array arguments = *reply.arguments();
  const Dictionary& objects = *arguments.at(0).dictionary();
  EXPECT_EQ(objects.size(), 5U + 16U);
  const Dictionary& interfaces = *platform::find(objects, kAuthInfo)->dictionary();
  const Dictionary& authInfo =
      *platform::find(interfaces, "org.bluez.GattCharacteristic1")->dictionary();
  EXPECT_EQ(platform::textForKey(authInfo, "UUID"), "00000009-0000-3512-2118-0009af100700");
  EXPECT_EQ(platform::textForKey(authInfo, "Service"), std::string(kRoot) + "/service1");
  EXPECT_EQ(*platform::find(authInfo, "Flags")->array(),
            (Array{"write-without-response", "notify"}));
}

TEST_F(BluezBandRadioTest, ServesOneHostAndAdvertisesAgainWhenItHasGone) {
  serveCommands(2);
  kernel.commands.clear();
  connectHost();
  EXPECT_EQ(band.link(), band::BandLink::connected);
  EXPECT_EQ(opcodes(), Opcodes{management::kRemoveAdvertising});
  EXPECT_EQ(kernel.commands[0].second, Bytes{kPlaces});

  Bytes notified;
  const std::string changes =
      "type='signal',interface='org.freedesktop.DBus.Properties',path='" + std::string(kAuthInfo);
  auto match = other->addMatch(changes + "'", [&](const BusMessage& message) {
    const Array arguments = *message.arguments();
    notified = *platform::find(*arguments.at(1).dictionary(), "Value")->data();
  });
  EXPECT_FALSE(gatt(kAuthInfo, "StartNotify").isError());
  EXPECT_FALSE(write(kAuthInfo, {0x02, 0x00}, "command").isError());
  serveUntil([&] { return !notified.empty(); });
  EXPECT_EQ(notified.size(), 19U);

  disconnectHost();
  EXPECT_EQ(band.link(), band::BandLink::disconnected);
  EXPECT_EQ(opcodes(), (Opcodes{management::kRemoveAdvertising, management::kAddAdvertising}));

  // It leaves nothing behind.
  kernel.commands.clear();
  radio.reset();
  kernel.serve();
  EXPECT_EQ(opcodes(), Opcodes{management::kRemoveAdvertising});
}

TEST_F(BluezBandRadioTest, LinksOfTheAdaptersOtherWorkAreNone) {
  serveCommands(2);
  struct {
    const char* name;
    Bytes parameters;
    std::uint16_t adapter;
  } const cases[] = {
      {"made by this machine", joined(kHost, {8, 0, 0, 0, 0, 0}), kAdapter},
      {"over BR/EDR", {6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0}, kAdapter},
      {"of another adapter", joined(kHost, {0, 0, 0, 0, 0, 0}), 0},
      {"cut short", {6, 5, 4}, kAdapter},
  };
  for (const auto& entry : cases) {
    kernel.event(management::kDeviceConnected, entry.parameters, entry.adapter);
    settle();
    EXPECT_EQ(band.link(), band::BandLink::disconnected) << entry.name;
  }
}

TEST_F(BluezBandRadioTest, RefusesInBluetoothdsWords) {
  onAirAndConnected();
  const Array nothing{Dictionary{}};
  const std::pair<BusMessage, const char*> kCases[] = {
      {gatt(kBattery, "ReadValue", "a{sv}", nothing), "NotAuthorized"},
      {gatt(kAuthInfo, "ReadValue", "a{sv}", nothing), "NotPermitted"},
      {write(kAuthInfo, {0x02}, "request"), "InvalidValueLength"},
      {write(kAuthInfo, {0x07, 0x00}, "request"), "Failed"},
      {gatt(kAuthInfo, "WriteValue", "aya{sv}", {Bytes{1, 2}, Dictionary{{"offset", 1}}}),
       "InvalidOffset"}};
  for (const auto& [reply, error] : kCases) {
    EXPECT_EQ(reply.errorName(), std::string("org.bluez.Error.") + error);
  }
}

TEST_F(BluezBandRadioTest, EndsTheLinkAsTheBandsOwnDoing) {
  onAirAndConnected();
  const auto timedOut = band.drop(6);
  ASSERT_TRUE(timedOut);
  EXPECT_EQ(timedOut->code, EOPNOTSUPP);
  EXPECT_FALSE(band.drop(7));
  settle();
  EXPECT_EQ(opcodes(), Opcodes{management::kDisconnect});
  EXPECT_EQ(kernel.commands[0].second, kHost);
  disconnectHost();

  connectHost();
  kernel.commands.clear();
  band.setIsInRange(false);
  settle();
  EXPECT_EQ(opcodes(), Opcodes{management::kDisconnect});
  disconnectHost();
  EXPECT_EQ(opcodes(), Opcodes{management::kDisconnect}) << "out of range it stays off the air";
  band.setIsInRange(true);
  settle();
  EXPECT_EQ(opcodes(), (Opcodes{management::kDisconnect, management::kAddAdvertising}));
}

TEST_F(BluezBandRadioTest, TheLastWishIsCarriedOutWhenTheKernelIsBusy) {
  serveCommands(2);
  kernel.commands.clear();
  kernel.statuses[management::kRemoveAdvertising] = {management::kBusy};
  band.setIsInRange(false);
  serveCommands(2);
  EXPECT_EQ(opcodes(), (Opcodes{management::kRemoveAdvertising, management::kRemoveAdvertising}));

  kernel.commands.clear();
  band.setIsInRange(true);
  band.setIsInRange(false);
  serveCommands(2);
  EXPECT_EQ(opcodes(), (Opcodes{management::kAddAdvertising, management::kRemoveAdvertising}));

  kernel.statuses[management::kAddAdvertising] = {management::kPermissionDenied};
  band.setIsInRange(true);
  settle();
  EXPECT_TRUE(
      log.contains("ERROR Cannot advertise (status 0x14): it takes the capability "
                   "CAP_NET_ADMIN"));
}

TEST_F(BluezBandRadioTest, IsPutBackOnTheAirAfterSomebodyElseOrTheLossOfPowerTookItOff) {
  serveCommands(2);
  kernel.commands.clear();
  kernel.event(management::kAdvertisingRemoved, {1});
  settle();
  EXPECT_TRUE(kernel.commands.empty()) << "another one's";
  kernel.event(management::kAdvertisingRemoved, {kPlaces});
  settle();
  EXPECT_EQ(opcodes(), Opcodes{management::kAddAdvertising});

  connectHost();
  kernel.event(management::kNewSettings, {0, 0, 0, 0});
  settle();
  EXPECT_EQ(band.link(), band::BandLink::disconnected);
  kernel.commands.clear();
  kernel.event(management::kNewSettings, {1, 0, 0, 0});
  settle();
  EXPECT_EQ(opcodes(), Opcodes{management::kAddAdvertising});
}

TEST_F(BluezBandRadioTest, RegistersAgainWhenBluetoothdIsBack) {
  serveCommands(2);
  kernel.commands.clear();
  other->releaseName("org.bluez");
  settle();
  EXPECT_EQ(opcodes(), Opcodes{management::kRemoveAdvertising}) << "nobody could serve a host";
  EXPECT_FALSE(other->requestName("org.bluez"));
  serveCommands(2);
  EXPECT_EQ(registrations, 2);
  EXPECT_EQ(opcodes(), (Opcodes{management::kRemoveAdvertising, management::kAddAdvertising}));
}

TEST_F(BluezBandRadioTest, EndsItsLinkWhenItEnds) {
  onAirAndConnected();
  radio.reset();
  kernel.serve();
  EXPECT_EQ(opcodes(), Opcodes{management::kDisconnect});
}

}  // namespace
}  // namespace wrixel2::bandradio
