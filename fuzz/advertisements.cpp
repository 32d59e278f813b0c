// From bluetoothd's device properties to a band that is known, with its MAC address, or is not.

#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/linux/bluez/BluezDevice.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBBLE/Services/KeyProvider.h"

namespace wrixel2::fuzz {
namespace {

using platform::Bytes;
using platform::Dictionary;
using platform::UUID;

class NoKey final : public mbservices::KeyProvider {
  std::string getMiFitAuthId() override { return {}; }
};

/// A device of a name, of which nothing else is asked.
class NamedDevice final : public platform::Peripheral {
 public:
  explicit NamedDevice(std::optional<std::string> name) : name_(std::move(name)) {}

  const UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return name_; }
  platform::PeripheralState state() const override {
    return platform::PeripheralState::disconnected;
  }
  std::vector<std::shared_ptr<platform::Service>> services() const override { return {}; }
  void setDelegate(std::weak_ptr<platform::PeripheralDelegate> /*delegate*/) override {}
  void discoverServices(const std::optional<std::vector<UUID>>& /*services*/) override {}
  void discoverCharacteristics(const std::optional<std::vector<UUID>>& /*wanted*/,
                               const std::shared_ptr<platform::Service>& /*service*/) override {}
  void discoverDescriptors(const std::shared_ptr<platform::Characteristic>& /*of*/) override {}
  void readValueForCharacteristic(const std::shared_ptr<platform::Characteristic>&) override {}
  void writeValueForCharacteristic(const Bytes& /*data*/,
                                   const std::shared_ptr<platform::Characteristic>& /*to*/,
                                   platform::WriteType /*type*/) override {}
  void setNotifyValue(bool /*enabled*/,
                      const std::shared_ptr<platform::Characteristic>& /*of*/) override {}
  void readValueForDescriptor(const std::shared_ptr<platform::Descriptor>& /*of*/) override {}
  void writeValueForDescriptor(const Bytes& /*data*/,
                               const std::shared_ptr<platform::Descriptor>& /*to*/) override {}
  void readRSSI() override {}

 private:
  UUID identifier_;
  std::optional<std::string> name_;
};

Dictionary device(Input& input) {
  constexpr std::string_view kKeys[] = {"Address", "AddressType", "Name", "Alias", "RSSI", "UUIDs"};
  Dictionary properties = input.dictionary(kKeys, 2);
  if (input.flag()) {
    properties.insert_or_assign("Name", "MI Band 2");
  }
  if (input.flag()) {
    Dictionary companies;
    for (std::size_t left = input.below(3); left > 0; --left) {
      companies.insert_or_assign(input.flag() ? "343" : input.text(8), input.bytes(40));
    }
    properties.insert_or_assign("ManufacturerData", std::move(companies));
  }
  return properties;
}

std::string macOf(const Dictionary& advertisement) {
  const auto* entry = platform::find(advertisement, platform::kAdvDataManufacturerData);
  const auto* data = entry != nullptr ? entry->data() : nullptr;
  if (data == nullptr || data->size() < 26) {
    return "00:00:00:00:00:00";
  }
  auto digits = platform::hexText(platform::ByteView(*data).subspan(20, 6));
  for (const std::size_t place : {10, 8, 6, 4, 2}) {
    digits.insert(place, ":");
  }
  return digits;
}

void discovered(Input& input) {
  using namespace platform::bluez;  // NOLINT(google-build-using-namespace)
  const Dictionary properties = device(input);
  const auto advertisement = advertisementOfDevice(properties);
  const auto name = nameOfDevice(properties);
  check(platform::textForKey(advertisement, platform::kAdvDataLocalName) == name,
        "the advertised name is the device's");
  check(!offersNothing(properties) || !offersAny(properties, std::vector<UUID>{UUID()}),
        "who offers nothing offers none");
  check(identifierOfDevice(properties) == identifierOfDevice(properties),
        "an identifier stays the same");
  static_cast<void>(rssiOfDevice(properties));
  static_cast<void>(uuidOfObject(properties));

  platform::simulated::SimulatedPlatform phone;
  NoKey key;
  const mbble::MBHealthKitManager healthKit{phone.healthStore, phone.systemInfo, phone.clock,
                                            phone.log};
  const auto manager = mbble::MBCentralManager::create(phone.handle(), key, healthKit, {});
  const std::string lock = input.flag() ? input.text(20) : "";
  manager->setMacToLock(lock);
  const auto peripheral = std::make_shared<NamedDevice>(name);
  const auto band = manager->handlePeripheral(peripheral, &advertisement);
  const auto mac = macOf(advertisement);
  const bool isAdmitted = name == "MI Band 2" && (lock.empty() || lock == mac);
  check((band != nullptr) == isAdmitted, "a band is known by its name and the lock");
  if (band) {
    check(band->mac() == mac, "the address is bytes 20 to 25 of the maker's data, or zeros");
    check(manager->handlePeripheral(peripheral, nullptr) == band, "a device is one band");
  }
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  discovered(input);
  return 0;
}
