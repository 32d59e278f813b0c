#pragma once

#include <string>

#include "platform/Peripheral.h"

namespace wrixel2::mbble {

/// A device in front of which nothing but its name can be seen.
class FakePeripheral final : public platform::Peripheral {
 public:
  explicit FakePeripheral(std::optional<std::string> name) : name_(std::move(name)) {}

  const platform::UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return name_; }
  platform::PeripheralState state() const override {
    return platform::PeripheralState::disconnected;
  }
  std::vector<std::shared_ptr<platform::Service>> services() const override { return {}; }
  void setDelegate(std::weak_ptr<platform::PeripheralDelegate>) override {}
  void discoverServices(const std::optional<std::vector<platform::UUID>>&) override {}
  void discoverCharacteristics(const std::optional<std::vector<platform::UUID>>&,
                               const std::shared_ptr<platform::Service>&) override {}
  void discoverDescriptors(const std::shared_ptr<platform::Characteristic>&) override {}
  void readValueForCharacteristic(const std::shared_ptr<platform::Characteristic>&) override {}
  void writeValueForCharacteristic(const platform::Bytes&,
                                   const std::shared_ptr<platform::Characteristic>&,
                                   platform::WriteType) override {}
  void setNotifyValue(bool, const std::shared_ptr<platform::Characteristic>&) override {}
  void readValueForDescriptor(const std::shared_ptr<platform::Descriptor>&) override {}
  void writeValueForDescriptor(const platform::Bytes&,
                               const std::shared_ptr<platform::Descriptor>&) override {}
  void readRSSI() override {}

 private:
  platform::UUID identifier_;
  std::optional<std::string> name_;
};

}  // namespace wrixel2::mbble
