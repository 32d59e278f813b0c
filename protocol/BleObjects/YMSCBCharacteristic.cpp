#include "protocol/BleObjects/YMSCBCharacteristic.h"

#include <utility>

#include <fmt/format.h>

#include "platform/Assertion.h"
#include "platform/Peripheral.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBDescriptor.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"

namespace wrixel2::bleobjects {
namespace {

/// Read callbacks of a notifying characteristic are never called, so they would pile up for as long
/// as the process runs. A few stay, because a characteristic that stops notifying gives them the
/// answers of later reads.
constexpr std::size_t kMostPendingReadsWhileNotifying = 16;

constexpr std::string_view kMissingObject = "###################### NULL value??";

}  // namespace

YMSCBCharacteristic::YMSCBCharacteristic(const platform::Platform& platform, std::string name,
                                         std::weak_ptr<YMSCBPeripheral> parent, platform::UUID uuid,
                                         std::int32_t offset)
    : log_(platform.log, "YMSCBCharacteristic"),
      name_(std::move(name)),
      uuid_(uuid),
      parent_(std::move(parent)),
      offset_(offset) {}

void YMSCBCharacteristic::setCbCharacteristic(
    std::shared_ptr<platform::Characteristic> characteristic) {
  cbCharacteristic_ = std::move(characteristic);
}

void YMSCBCharacteristic::setNotificationStateCallback(ErrorCallback callback) {
  notificationStateCallback_.reset();
  if (callback) {
    notificationStateCallback_ = std::move(callback);
  }
}

void YMSCBCharacteristic::setNotifyValue(bool enabled, ErrorCallback callback) {
  const auto peripheral = cbPeripheral();
  if (!peripheral || !cbCharacteristic_) {
    log_.warning(kMissingObject);
    return;
  }
  if (callback) {
    setNotificationStateCallback(std::move(callback));
  }
  peripheral->setNotifyValue(enabled, cbCharacteristic_);
}

void YMSCBCharacteristic::executeNotificationStateCallback(const platform::ErrorOrNone& error) {
  if (!notificationStateCallback_) {
    return;
  }
  const auto self = shared_from_this();
  const ErrorCallback callback = std::move(*notificationStateCallback_);
  if (!callback) {
    platform::assertionFailure(
        "ERROR: notificationStateCallback is nil; please check for multi-threaded access of "
        "executeNotificationStateCallback");
  }
  callback(error);
  // Cleared only now, deliberately: one answer ends whatever is pending, so a request made by the
  // callback itself has no callback of its own.
  notificationStateCallback_.reset();
}

void YMSCBCharacteristic::writeValue(const platform::Bytes& data, ErrorCallback callback) {
  const auto peripheral = cbPeripheral();
  if (!cbCharacteristic_ || data.empty() || !peripheral) {
    log_.warning(kMissingObject);
    return;
  }
  auto type = platform::WriteType::withoutResponse;
  if (callback) {
    writeCallbacks_.push(std::move(callback));
    type = platform::WriteType::withResponse;
  }
  peripheral->writeValueForCharacteristic(data, cbCharacteristic_, type);
}

void YMSCBCharacteristic::writeByte(std::uint8_t byte, ErrorCallback callback) {
  writeValue({byte}, std::move(callback));
}

void YMSCBCharacteristic::executeWriteCallback(const platform::ErrorOrNone& error) {
  const auto callback = writeCallbacks_.pop();
  if (callback && *callback) {
    (*callback)(error);
  }
}

void YMSCBCharacteristic::readValueWithBlock(ReadCallback callback) {
  const auto peripheral = cbPeripheral();
  if (!cbCharacteristic_ || !peripheral) {
    log_.warning("cbCharacteristic is null!");
    return;
  }
  if (cbCharacteristic_->isNotifying() &&
      readCallbacks_.count() >= kMostPendingReadsWhileNotifying) {
    readCallbacks_.pop();
  }
  readCallbacks_.push(std::move(callback));
  peripheral->readValueForCharacteristic(cbCharacteristic_);
}

void YMSCBCharacteristic::executeReadCallback(const std::optional<platform::Bytes>& data,
                                              const platform::ErrorOrNone& error) {
  const auto callback = readCallbacks_.pop();
  if (callback && *callback) {
    (*callback)(data, error);
  }
}

void YMSCBCharacteristic::discoverDescriptorsWithBlock(DiscoverDescriptorsCallback callback) {
  if (!cbCharacteristic_) {
    log_.warning(
        fmt::format("WARNING: Attempt to discover descriptors with null cbCharacteristic: '{}' "
                    "for {}",
                    name_, uuid_.text()));
    return;
  }
  discoverDescriptorsCallback_ = std::move(callback);
  if (const auto peripheral = cbPeripheral()) {
    peripheral->discoverDescriptors(cbCharacteristic_);
  }
}

void YMSCBCharacteristic::handleDiscoveredDescriptorsResponse(
    const std::vector<std::shared_ptr<YMSCBDescriptor>>& descriptors,
    const platform::ErrorOrNone& error) {
  if (!discoverDescriptorsCallback_) {
    platform::assertionFailure(
        "ERROR: discoverDescriptorsCallback is nil; please check for multi-threaded access of "
        "handleDiscoveredDescriptorsResponse");
  }
  const auto self = shared_from_this();
  const DiscoverDescriptorsCallback callback = std::move(discoverDescriptorsCallback_);
  callback(descriptors, error);
  discoverDescriptorsCallback_ = nullptr;
}

void YMSCBCharacteristic::syncDescriptors(
    const std::vector<std::shared_ptr<platform::Descriptor>>& cbDescriptors) {
  std::vector<std::shared_ptr<YMSCBDescriptor>> descriptors;
  for (const auto& cbDescriptor : cbDescriptors) {
    auto descriptor = std::make_shared<YMSCBDescriptor>();
    descriptor->setCbDescriptor(cbDescriptor);
    descriptor->setParent(parent_);
    descriptors.push_back(std::move(descriptor));
  }
  descriptors_ = std::move(descriptors);
}

std::shared_ptr<platform::Peripheral> YMSCBCharacteristic::cbPeripheral() const {
  const auto peripheral = parent_.lock();
  return peripheral ? peripheral->cbPeripheral() : nullptr;
}

}  // namespace wrixel2::bleobjects
