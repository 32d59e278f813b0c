#include "protocol/BleObjects/YMSCBDescriptor.h"

#include "platform/Peripheral.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"

namespace wrixel2::bleobjects {

void YMSCBDescriptor::setCbDescriptor(std::shared_ptr<platform::Descriptor> descriptor) {
  cbDescriptor_ = std::move(descriptor);
}

std::optional<platform::UUID> YMSCBDescriptor::UUID() const {
  return cbDescriptor_ ? std::optional(cbDescriptor_->uuid()) : std::nullopt;
}

void YMSCBDescriptor::setReadCallbacks(std::optional<FifoQueue<ReadCallback>> queue) {
  readCallbacks_ = std::move(queue);
}

void YMSCBDescriptor::setWriteCallbacks(std::optional<FifoQueue<ErrorCallback>> queue) {
  writeCallbacks_ = std::move(queue);
}

void YMSCBDescriptor::writeValue(const platform::Bytes& data, ErrorCallback callback) {
  if (writeCallbacks_) {
    writeCallbacks_->push(std::move(callback));
  }
  if (const auto peripheral = cbPeripheral(); peripheral && cbDescriptor_) {
    peripheral->writeValueForDescriptor(data, cbDescriptor_);
  }
}

void YMSCBDescriptor::writeByte(std::uint8_t byte, ErrorCallback callback) {
  writeValue({byte}, std::move(callback));
}

void YMSCBDescriptor::readValueWithBlock(ReadCallback callback) {
  if (readCallbacks_) {
    readCallbacks_->push(std::move(callback));
  }
  if (const auto peripheral = cbPeripheral(); peripheral && cbDescriptor_) {
    peripheral->readValueForDescriptor(cbDescriptor_);
  }
}

void YMSCBDescriptor::executeReadCallback(const std::optional<platform::Bytes>& data,
                                          const platform::ErrorOrNone& error) {
  const auto callback = readCallbacks_ ? readCallbacks_->pop() : std::nullopt;
  if (callback && *callback) {
    (*callback)(data, error);
  }
}

void YMSCBDescriptor::executeWriteCallback(const platform::ErrorOrNone& error) {
  const auto callback = writeCallbacks_ ? writeCallbacks_->pop() : std::nullopt;
  if (callback && *callback) {
    (*callback)(error);
  }
}

std::shared_ptr<platform::Peripheral> YMSCBDescriptor::cbPeripheral() const {
  const auto peripheral = parent_.lock();
  return peripheral ? peripheral->cbPeripheral() : nullptr;
}

}  // namespace wrixel2::bleobjects
