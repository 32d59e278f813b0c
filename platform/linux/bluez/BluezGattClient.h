#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Peripheral.h"
#include "platform/RunLoop.h"
#include "platform/linux/bluez/BluezBus.h"
#include "platform/linux/bluez/BluezService.h"

namespace wrixel2::platform::bluez {

class BluezCentralContext;

/// Where the answers go: in a later turn, in order, the change is made and the delegate told.
class BluezGattAnswers {
 public:
  using Tell =
      std::function<void(PeripheralDelegate& delegate, const std::shared_ptr<Peripheral>& self)>;

  virtual void answer(Task change, Tell tell) = 0;

 protected:
  BluezGattAnswers() = default;
  BluezGattAnswers(const BluezGattAnswers&) = default;
  BluezGattAnswers& operator=(const BluezGattAnswers&) = default;
  ~BluezGattAnswers() = default;
};

/// What goes over one device's link: discovery, reads, writes, notifications.
///
/// One operation is under way at a time, so that all keep the order in which they were asked for,
/// also across characteristics; the attribute protocol takes one request at a time anyway.
/// Everything that has an answer gets exactly one.
class BluezGattClient {
 public:
  /// Beyond the attribute protocol's own 30 s.
  static constexpr TimeInterval kTimeout = std::chrono::seconds(60);
  /// Another program's operation may be in the way for a while.
  static constexpr TimeInterval kBusyPause = std::chrono::milliseconds(100);
  static constexpr unsigned kBusyAttempts = 20;
  /// Writes without response that wait; nothing tells their sender to slow down, so more are
  /// dropped.
  static constexpr std::size_t kMaximumWaitingCommands = 64;

  /// Both outlive it; so does whatever answers the context's calls end before it.
  BluezGattClient(BluezCentralContext& context, BluezGattAnswers& answers, std::string device);

  const std::vector<std::shared_ptr<BluezService>>& services() const { return services_; }

  void discoverServices(const std::optional<std::vector<UUID>>& services);
  void discoverCharacteristics(const std::optional<std::vector<UUID>>& characteristics,
                               const std::shared_ptr<BluezService>& service);
  void discoverDescriptors(const std::shared_ptr<BluezCharacteristic>& characteristic);
  void read(const std::shared_ptr<BluezCharacteristic>& characteristic);
  void write(const Bytes& data, const std::shared_ptr<BluezCharacteristic>& characteristic,
             WriteType type);
  void setNotify(bool enabled, const std::shared_ptr<BluezCharacteristic>& characteristic);
  void readDescriptor(const std::shared_ptr<BluezDescriptor>& descriptor);
  void writeDescriptor(const Bytes& data, const std::shared_ptr<BluezDescriptor>& descriptor);

  // --- what is heard of the device ---

  void linkCameUp();
  /// Answers whatever is pending with an error and gives the subscriptions back.
  void linkLost();
  void servicesResolved(bool areResolved);
  void objectAdded(const std::string& path);
  void objectRemoved(const std::string& path);
  void valueAnnounced(const std::string& path, const Bytes& value);

 private:
  enum class Kind : std::uint8_t {
    read,
    writeRequest,
    writeCommand,
    startNotify,
    stopNotify,
    renewNotify,  ///< nobody waits for its answer
    readDescriptor,
    writeDescriptor
  };
  struct Operation {
    Kind kind;
    std::shared_ptr<BluezCharacteristic> characteristic;
    std::shared_ptr<BluezDescriptor> descriptor;
    Bytes data;
    unsigned attempts = 0;

    const std::string& path() const;
    std::string_view interface() const;
    BluezCall call() const;
  };
  /// Given the error that stands in its way, if any.
  using Discovery = std::function<void(const ErrorOrNone& error)>;

  void discover(Discovery discovery);
  void runDiscoveries();
  void findServices(const std::optional<std::vector<UUID>>& wanted);
  void findCharacteristics(const std::optional<std::vector<UUID>>& wanted, BluezService& service);
  std::vector<std::shared_ptr<BluezDescriptor>> findDescriptors(
      const BluezCharacteristic& characteristic) const;
  std::shared_ptr<BluezCharacteristic> characteristicAt(const std::string& path) const;
  bool isCurrent(const BluezCharacteristic& characteristic) const;

  void perform(Operation operation);
  ErrorOrNone refusalOf(const Operation& operation) const;
  void sendNext();
  void send(const Operation& operation);
  void replied(const BluezReply& reply);
  void finish(const Operation& operation, const ErrorOrNone& error, const Bytes* value);
  void tellOutcome(const Operation& operation, const ErrorOrNone& error, const Bytes* value);
  void hold(const Operation& operation);
  void release(BluezCharacteristic& characteristic, bool lastIsAnswer);
  void notify(const std::shared_ptr<BluezCharacteristic>& characteristic, const Bytes& value);
  void setIsSubscribed(const std::shared_ptr<BluezCharacteristic>& characteristic, bool is);

  BluezCentralContext& context_;
  BluezGattAnswers& answers_;
  std::string device_;
  bool isUp_ = false;
  bool areResolved_ = false;  ///< and all their objects are known
  std::uint64_t fetch_ = 0;   ///< an earlier one than the last does not count
  std::vector<std::shared_ptr<BluezService>> services_;
  std::deque<Discovery> discoveries_;
  std::deque<Operation> operations_;  ///< the first is under way, if one is
  bool isUnderWay_ = false;
  std::uint64_t call_ = 0;  ///< replies to earlier ones are not waited for
  std::unique_ptr<Timer> busyTimer_;
};

}  // namespace wrixel2::platform::bluez
