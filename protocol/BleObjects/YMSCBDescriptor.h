#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "platform/Bytes.h"
#include "platform/Descriptor.h"
#include "platform/Error.h"
#include "platform/UUID.h"
#include "protocol/BleObjects/FifoQueue.h"
#include "protocol/BleObjects/YMSCBCallbacks.h"

namespace wrixel2::platform {
class Peripheral;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// One descriptor of a characteristic.
///
/// It begins without callback queues, and a characteristic gives it none: until they are set,
/// requests are sent and their callbacks lost, and answers find nothing. Nothing here reads or
/// writes descriptors.
class YMSCBDescriptor {
 public:
  const std::shared_ptr<platform::Descriptor>& cbDescriptor() const { return cbDescriptor_; }
  void setCbDescriptor(std::shared_ptr<platform::Descriptor> descriptor);
  /// The platform descriptor's; none without one.
  std::optional<platform::UUID> UUID() const;
  /// None once the peripheral is gone.
  std::shared_ptr<YMSCBPeripheral> parent() const { return parent_.lock(); }
  void setParent(std::weak_ptr<YMSCBPeripheral> parent) { parent_ = std::move(parent); }

  const std::optional<FifoQueue<ReadCallback>>& readCallbacks() const { return readCallbacks_; }
  void setReadCallbacks(std::optional<FifoQueue<ReadCallback>> queue);
  const std::optional<FifoQueue<ErrorCallback>>& writeCallbacks() const { return writeCallbacks_; }
  void setWriteCallbacks(std::optional<FifoQueue<ErrorCallback>> queue);

  void writeValue(const platform::Bytes& data, ErrorCallback callback);
  void writeByte(std::uint8_t byte, ErrorCallback callback);
  void readValueWithBlock(ReadCallback callback);

  void executeReadCallback(const std::optional<platform::Bytes>& data,
                           const platform::ErrorOrNone& error);
  void executeWriteCallback(const platform::ErrorOrNone& error);

 private:
  std::shared_ptr<platform::Peripheral> cbPeripheral() const;

  std::shared_ptr<platform::Descriptor> cbDescriptor_;
  std::weak_ptr<YMSCBPeripheral> parent_;
  std::optional<FifoQueue<ReadCallback>> readCallbacks_;
  std::optional<FifoQueue<ErrorCallback>> writeCallbacks_;
};

}  // namespace wrixel2::bleobjects
