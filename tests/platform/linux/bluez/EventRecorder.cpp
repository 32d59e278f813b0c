#include "tests/platform/linux/bluez/EventRecorder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace wrixel2::platform::bluez {
namespace {

std::string codeOf(const ErrorOrNone& error) { return error ? std::to_string(error->code) : "-"; }

}  // namespace

void EventRecorder::add(std::string event) {
  events.push_back(event);
  if (const auto action = react) {  // which may put another in its place
    action(event);
  }
}

void EventRecorder::centralManagerDidUpdateState(CentralManager& central) {
  add(fmt::format("state {}", static_cast<int>(central.state())));
}

void EventRecorder::centralManagerDidDiscoverPeripheral(
    CentralManager& /*central*/, const std::shared_ptr<Peripheral>& peripheral,
    const Dictionary& data, int rssi) {
  found.push_back(peripheral);
  const auto* entry = find(data, kAdvDataManufacturerData);
  add(fmt::format("found {} {} {} {}", description(peripheral->name()), rssi,
                  entry == nullptr ? "-" : hexText(*entry->data()),
                  textForKey(data, kAdvDataLocalName).value_or("-")));
}

void EventRecorder::centralManagerDidConnectPeripheral(
    CentralManager& /*central*/, const std::shared_ptr<Peripheral>& peripheral) {
  EXPECT_EQ(peripheral->state(), PeripheralState::connected);
  add("connected");
}

void EventRecorder::centralManagerDidDisconnectPeripheral(
    CentralManager& /*central*/, const std::shared_ptr<Peripheral>& peripheral,
    const ErrorOrNone& error) {
  EXPECT_NE(peripheral->state(), PeripheralState::connected);
  EXPECT_TRUE(peripheral->services().empty());
  add("disconnected " + codeOf(error));
}

void EventRecorder::centralManagerDidFailToConnectPeripheral(
    CentralManager& /*central*/, const std::shared_ptr<Peripheral>& /*peripheral*/,
    const ErrorOrNone& error) {
  add("failed " + codeOf(error));
}

void EventRecorder::peripheralDidDiscoverServices(const std::shared_ptr<Peripheral>& peripheral,
                                                  const ErrorOrNone& error) {
  std::string names;
  for (const auto& service : peripheral->services()) {
    names += " " + service->uuid().text();
  }
  add("services " + codeOf(error) + names);
}

void EventRecorder::peripheralDidDiscoverIncludedServicesForService(
    const std::shared_ptr<Peripheral>& /*peripheral*/, const std::shared_ptr<Service>& service,
    const ErrorOrNone& error) {
  add(fmt::format("included {} {}", service->uuid().text(), codeOf(error)));
}

void EventRecorder::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<Peripheral>& /*peripheral*/, const std::shared_ptr<Service>& service,
    const ErrorOrNone& error) {
  std::string names;
  for (const auto& characteristic : service->characteristics()) {
    EXPECT_TRUE(error || characteristic->service() == service);
    names += " " + characteristic->uuid().text();
  }
  add(fmt::format("characteristics {} {}{}", service->uuid().text(), codeOf(error), names));
}

void EventRecorder::peripheralDidDiscoverDescriptorsForCharacteristic(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) {
  add(fmt::format("descriptors {} {} {}", characteristic->uuid().text(), codeOf(error),
                  characteristic->descriptors().size()));
}

void EventRecorder::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) {
  add(fmt::format(
      "value {} {}", characteristic->uuid().text(),
      error ? "error " + codeOf(error) : hexText(characteristic->value().value_or(Bytes()))));
}

void EventRecorder::peripheralDidUpdateValueForDescriptor(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Descriptor>& descriptor, const ErrorOrNone& error) {
  add(fmt::format("descriptor {} {}", descriptor->uuid().text(), codeOf(error)));
}

void EventRecorder::peripheralDidUpdateNotificationStateForCharacteristic(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) {
  add(fmt::format("notifying {} {} {}", characteristic->uuid().text(),
                  characteristic->isNotifying() ? "yes" : "no", codeOf(error)));
}

void EventRecorder::peripheralDidWriteValueForCharacteristic(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) {
  add(fmt::format("written {} {}", characteristic->uuid().text(), codeOf(error)));
}

void EventRecorder::peripheralDidWriteValueForDescriptor(
    const std::shared_ptr<Peripheral>& /*peripheral*/,
    const std::shared_ptr<Descriptor>& descriptor, const ErrorOrNone& error) {
  add(fmt::format("descriptor written {} {}", descriptor->uuid().text(), codeOf(error)));
}

void EventRecorder::peripheralDidUpdateRSSI(const std::shared_ptr<Peripheral>& /*peripheral*/,
                                            const ErrorOrNone& error) {
  add("rssi " + codeOf(error));
}

void EventRecorder::peripheralDidUpdateName(const std::shared_ptr<Peripheral>& peripheral) {
  add("name " + description(peripheral->name()));
}

}  // namespace wrixel2::platform::bluez
