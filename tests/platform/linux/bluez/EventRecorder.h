#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "platform/CentralManager.h"

namespace wrixel2::platform::bluez {

inline std::shared_ptr<Characteristic> characteristicOf(const Peripheral& peripheral,
                                                        const UUID& uuid) {
  for (const auto& service : peripheral.services()) {
    for (const auto& one : service->characteristics()) {
      if (one->uuid() == uuid) {
        return one;
      }
    }
  }
  return nullptr;
}

/// Writes down what the delegates are told, as "state 5", "connected", "disconnected 7" ("-": no
/// error), "value 2a2b aa", "written 2a2b 14", "notifying 2a2b yes -".
class EventRecorder final : public CentralManagerDelegate, public PeripheralDelegate {
 public:
  std::vector<std::string> events;
  std::vector<std::shared_ptr<Peripheral>> found;
  /// Called after each event.
  std::function<void(const std::string& event)> react;

  /// Those since the last time, separated by ", ".
  std::string take() { return fmt::format("{}", fmt::join(std::exchange(events, {}), ", ")); }

 private:
  using PeripheralRef = const std::shared_ptr<Peripheral>&;
  using ServiceRef = const std::shared_ptr<Service>&;
  using CharacteristicRef = const std::shared_ptr<Characteristic>&;
  using DescriptorRef = const std::shared_ptr<Descriptor>&;
  using ErrorRef = const ErrorOrNone&;

  static std::string codeOf(ErrorRef error) { return error ? std::to_string(error->code) : "-"; }

  template <typename... Parts>
  void add(const Parts&... parts) {
    std::string event;
    ((event += fmt::format("{}{}", event.empty() ? "" : " ", parts)), ...);
    events.push_back(event);
    if (const auto action = react) {  // which may put another in its place
      action(event);
    }
  }

  void centralManagerDidUpdateState(CentralManager& central) override {
    add("state", static_cast<int>(central.state()));
  }
  void centralManagerDidDiscoverPeripheral(CentralManager&, PeripheralRef peripheral,
                                           const Dictionary& data, int rssi) override {
    found.push_back(peripheral);
    const auto* entry = find(data, kAdvDataManufacturerData);
    add("found", description(peripheral->name()), rssi,
        entry == nullptr ? "-" : hexText(*entry->data()),
        textForKey(data, kAdvDataLocalName).value_or("-"));
  }
  void centralManagerDidConnectPeripheral(CentralManager&, PeripheralRef peripheral) override {
    EXPECT_EQ(peripheral->state(), PeripheralState::connected);
    add("connected");
  }
  void centralManagerDidDisconnectPeripheral(CentralManager&, PeripheralRef peripheral,
                                             ErrorRef error) override {
    EXPECT_NE(peripheral->state(), PeripheralState::connected);
    EXPECT_TRUE(peripheral->services().empty());
    add("disconnected", codeOf(error));
  }
  void centralManagerDidFailToConnectPeripheral(CentralManager&, PeripheralRef,
                                                ErrorRef error) override {
    add("failed", codeOf(error));
  }
  void peripheralDidDiscoverServices(PeripheralRef peripheral, ErrorRef error) override {
    std::string names;
    for (const auto& service : peripheral->services()) {
      names += " " + service->uuid().text();
    }
    add("services", codeOf(error) + names);
  }
  void peripheralDidDiscoverIncludedServicesForService(PeripheralRef, ServiceRef service,
                                                       ErrorRef error) override {
    add("included", service->uuid().text(), codeOf(error));
  }
  void peripheralDidDiscoverCharacteristicsForService(PeripheralRef, ServiceRef service,
                                                      ErrorRef error) override {
    std::string names;
    for (const auto& characteristic : service->characteristics()) {
      EXPECT_TRUE(error || characteristic->service() == service);
      names += " " + characteristic->uuid().text();
    }
    add("characteristics", service->uuid().text(), codeOf(error) + names);
  }
  void peripheralDidDiscoverDescriptorsForCharacteristic(PeripheralRef, CharacteristicRef of,
                                                         ErrorRef error) override {
    add("descriptors", of->uuid().text(), codeOf(error), of->descriptors().size());
  }
  void peripheralDidUpdateValueForCharacteristic(PeripheralRef, CharacteristicRef of,
                                                 ErrorRef error) override {
    add("value", of->uuid().text(),
        error ? "error " + codeOf(error) : hexText(of->value().value_or(Bytes())));
  }
  void peripheralDidUpdateValueForDescriptor(PeripheralRef, DescriptorRef of,
                                             ErrorRef error) override {
    add("descriptor", of->uuid().text(), codeOf(error));
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(PeripheralRef, CharacteristicRef of,
                                                             ErrorRef error) override {
    add("notifying", of->uuid().text(), of->isNotifying() ? "yes" : "no", codeOf(error));
  }
  void peripheralDidWriteValueForCharacteristic(PeripheralRef, CharacteristicRef of,
                                                ErrorRef error) override {
    add("written", of->uuid().text(), codeOf(error));
  }
  void peripheralDidWriteValueForDescriptor(PeripheralRef, DescriptorRef of,
                                            ErrorRef error) override {
    add("descriptor written", of->uuid().text(), codeOf(error));
  }
  void peripheralDidUpdateRSSI(PeripheralRef, ErrorRef error) override {
    add("rssi", codeOf(error));
  }
  void peripheralDidUpdateName(PeripheralRef peripheral) override {
    add("name", description(peripheral->name()));
  }
};

}  // namespace wrixel2::platform::bluez
