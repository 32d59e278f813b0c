#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Characteristic.h"
#include "platform/Error.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "protocol/BleObjects/FifoQueue.h"
#include "protocol/BleObjects/YMSCBCallbacks.h"

namespace wrixel2::platform {
class Peripheral;
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// One characteristic of a remote device, declared before any connection and bound to the
/// platform's object by discovery. It turns the platform's requests and answers into requests with
/// a callback.
///
/// Owned by its service and always held in a shared pointer. Pending callbacks outlive the link:
/// the next answer takes the oldest, even one of an earlier connection. Without a platform object
/// (its own, or the peripheral's) a request is a warning line and its callback is never called.
class YMSCBCharacteristic : public std::enable_shared_from_this<YMSCBCharacteristic> {
 public:
  YMSCBCharacteristic(const platform::Platform& platform, std::string name,
                      std::weak_ptr<YMSCBPeripheral> parent, platform::UUID uuid,
                      std::int32_t offset);

  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const platform::UUID& uuid() const { return uuid_; }
  void setUuid(const platform::UUID& uuid) { uuid_ = uuid; }
  /// What its UUID was made from; 0 where it was given as a whole.
  std::int32_t offset() const { return offset_; }
  void setOffset(std::int32_t offset) { offset_ = offset; }
  /// The peripheral, not the service; none once it is gone.
  std::shared_ptr<YMSCBPeripheral> parent() const { return parent_.lock(); }
  void setParent(std::weak_ptr<YMSCBPeripheral> parent) { parent_ = std::move(parent); }
  /// None before discovery; that of the last discovery afterwards.
  const std::shared_ptr<platform::Characteristic>& cbCharacteristic() const {
    return cbCharacteristic_;
  }
  void setCbCharacteristic(std::shared_ptr<platform::Characteristic> characteristic);
  const std::vector<std::shared_ptr<YMSCBDescriptor>>& descriptors() const { return descriptors_; }
  void setDescriptors(std::vector<std::shared_ptr<YMSCBDescriptor>> descriptors) {
    descriptors_ = std::move(descriptors);
  }

  /// The value of the read answer or notification handled last, as it was when it came in; none
  /// before the first. During a service's handler it is the value that the handler is called for,
  /// even if the platform's object holds a newer one by then.
  const std::optional<platform::Bytes>& value() const { return value_; }
  void setValue(std::optional<platform::Bytes> value) { value_ = std::move(value); }

  /// A second request before the answer replaces the first one's callback; without a callback the
  /// earlier one stays.
  void setNotifyValue(bool enabled, ErrorCallback callback);
  /// Calls the pending callback, then forgets whatever callback is pending, also one that was
  /// stored during the call. Nothing without one; fatal from inside the call, where it is pending
  /// and taken.
  void executeNotificationStateCallback(const platform::ErrorOrNone& error);

  /// With a callback the band acknowledges the write; without one it does not. Empty data is not
  /// written.
  void writeValue(const platform::Bytes& data, ErrorCallback callback);
  void writeByte(std::uint8_t byte, ErrorCallback callback);
  void executeWriteCallback(const platform::ErrorOrNone& error);

  /// On a notifying characteristic the answer goes to the service's handler and the callback stays
  /// pending; the oldest of more than 16 such callbacks is dropped.
  void readValueWithBlock(ReadCallback callback);
  void executeReadCallback(const std::optional<platform::Bytes>& data,
                           const platform::ErrorOrNone& error);

  void discoverDescriptorsWithBlock(DiscoverDescriptorsCallback callback);
  /// Fatal without a pending callback.
  void handleDiscoveredDescriptorsResponse(
      const std::vector<std::shared_ptr<YMSCBDescriptor>>& descriptors,
      const platform::ErrorOrNone& error);
  /// Replaces the descriptors by new ones for the platform's.
  void syncDescriptors(const std::vector<std::shared_ptr<platform::Descriptor>>& cbDescriptors);

  /// What is pending; setting replaces it uncalled. A single callback is pending until its call has
  /// returned, the oldest of a queue until its answer.
  const std::optional<ErrorCallback>& notificationStateCallback() const {
    return notificationStateCallback_;
  }
  void setNotificationStateCallback(ErrorCallback callback);
  const DiscoverDescriptorsCallback& discoverDescriptorsCallback() const {
    return discoverDescriptorsCallback_;
  }
  void setDiscoverDescriptorsCallback(DiscoverDescriptorsCallback callback) {
    discoverDescriptorsCallback_ = std::move(callback);
  }
  const FifoQueue<ReadCallback>& readCallbacks() const { return readCallbacks_; }
  void setReadCallbacks(FifoQueue<ReadCallback> queue) { readCallbacks_ = std::move(queue); }
  const FifoQueue<ErrorCallback>& writeCallbacks() const { return writeCallbacks_; }
  void setWriteCallbacks(FifoQueue<ErrorCallback> queue) { writeCallbacks_ = std::move(queue); }

 private:
  std::shared_ptr<platform::Peripheral> cbPeripheral() const;

  platform::Logger log_;
  std::string name_;
  platform::UUID uuid_;
  std::shared_ptr<platform::Characteristic> cbCharacteristic_;
  std::weak_ptr<YMSCBPeripheral> parent_;  ///< owns the service that owns this
  std::int32_t offset_;
  std::vector<std::shared_ptr<YMSCBDescriptor>> descriptors_;
  std::optional<platform::Bytes> value_;
  std::optional<ErrorCallback> notificationStateCallback_;  ///< an empty one while it is called
  DiscoverDescriptorsCallback discoverDescriptorsCallback_;
  FifoQueue<ReadCallback> readCallbacks_;
  FifoQueue<ErrorCallback> writeCallbacks_;
};

}  // namespace wrixel2::bleobjects
