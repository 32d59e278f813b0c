#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Peripheral.h"
#include "platform/RunLoop.h"
#include "platform/simulated/SimulatedService.h"
#include "platform/simulated/VirtualRadio.h"

namespace wrixel2::platform::simulated {

class SimulatedCentralManager;
class VirtualLink;

/// A virtual band as one central manager sees it.
class SimulatedPeripheral final : public Peripheral,
                                  public std::enable_shared_from_this<SimulatedPeripheral> {
 public:
  /// Both are borrowed until leave().
  SimulatedPeripheral(SimulatedCentralManager& manager, VirtualLink& link);
  SimulatedPeripheral(const SimulatedPeripheral&) = delete;
  SimulatedPeripheral& operator=(const SimulatedPeripheral&) = delete;
  ~SimulatedPeripheral() override = default;

  const UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return name_; }
  PeripheralState state() const override { return state_; }
  std::vector<std::shared_ptr<Service>> services() const override {
    return {services_.begin(), services_.end()};
  }
  void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices(const std::optional<std::vector<UUID>>& services) override;
  void discoverCharacteristics(const std::optional<std::vector<UUID>>& characteristics,
                               const std::shared_ptr<Service>& service) override;
  void discoverDescriptors(const std::shared_ptr<Characteristic>& characteristic) override;
  void readValueForCharacteristic(const std::shared_ptr<Characteristic>& characteristic) override;
  void writeValueForCharacteristic(const Bytes& data,
                                   const std::shared_ptr<Characteristic>& characteristic,
                                   WriteType type) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& characteristic) override;
  void readValueForDescriptor(const std::shared_ptr<Descriptor>& descriptor) override;
  /// Refused: subscriptions are made with setNotifyValue, and there is no other descriptor.
  void writeValueForDescriptor(const Bytes& data,
                               const std::shared_ptr<Descriptor>& descriptor) override;
  void readRSSI() override;

  // --- from its central manager ---

  /// None after leave().
  const VirtualLink* link() const { return link_; }
  void connect();
  void cancelConnection();
  /// Goes on with a connection that waits, if it can be made now.
  void tryToConnect();
  /// The radio is gone: a connection that waits will not come about.
  void forgetPendingConnection();
  /// The manager goes away: nothing is delivered any more.
  void leave();

  // --- from its link ---

  void linkEnded(const ErrorOrNone& error);
  void receiveNotification(const UUID& service, const UUID& characteristic, const Bytes& value);

 private:
  using Perform = UniqueFunction<void(const ErrorOrNone& failure)>;

  bool ownsLink() const;
  void completeConnection();
  /// The state after something has ended.
  void settle();
  void deliverConnectionFailure(const Error& error);
  void deliverDisconnection(const ErrorOrNone& error);
  void request(RadioOperation kind, const UUID& on, const ErrorOrNone& refusal, Perform perform);
  /// Queues a call of the delegate as the answer to a request.
  template <typename Call>
  void answer(Call call);
  template <typename Call>
  void tellDelegate(const Call& call);
  std::shared_ptr<SimulatedService> knownService(const UUID& uuid) const;

  SimulatedCentralManager* manager_;
  VirtualLink* link_;
  UUID identifier_;
  std::string name_;
  PeripheralState state_ = PeripheralState::disconnected;
  std::weak_ptr<PeripheralDelegate> delegate_;
  std::vector<std::shared_ptr<SimulatedService>> services_;
  bool isConnectionPending_ = false;
  std::unique_ptr<Timer> connectTimer_;
};

}  // namespace wrixel2::platform::simulated
