#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

class SocketWatch;

/// bluetoothd over sd-bus, on a connection of its own.
///
/// Without a bus it waits for the bus's socket. Only signals of the present owner of org.bluez are
/// passed on, and nothing here starts bluetoothd.
class SdBusBluezBus final : public BluezBus {
 public:
  /// After the last sign of life of a socket that does not let us in.
  static constexpr TimeInterval kSecondAttempt = std::chrono::seconds(1);
  /// Between attempts at a bus whose address names no file that could be watched.
  static constexpr TimeInterval kBlindAttempt = std::chrono::seconds(60);

  /// The machine's own bus unless another D-Bus address is given. Loop and log outlive it.
  SdBusBluezBus(linux::LinuxRunLoop& loop, Log& log, std::string address = {});
  SdBusBluezBus(const SdBusBluezBus&) = delete;
  SdBusBluezBus& operator=(const SdBusBluezBus&) = delete;
  ~SdBusBluezBus() override;

  void start(BluezBusListener& listener) override;
  void call(BluezCall call, TimeInterval timeout, Callback callback) override;
  void send(BluezCall call) override;

 private:
  using Message = linux::BusMessage;
  using Handler = void (SdBusBluezBus::*)(const Message& message, const Array& arguments);

  void postWhileAlive(Task task);
  void connect();
  void awaitBus();
  ErrorOrNone subscribe();
  ErrorOrNone subscribeTo(const std::string& rule, std::string_view signature, Handler handler);
  void connectionLost(const Error& error);

  void askForOwner();
  void ownerIs(const std::string& owner);
  void ownerChanged(const Message& message, const Array& arguments);
  void interfacesAdded(const Message& message, const Array& arguments);
  void interfacesRemoved(const Message& message, const Array& arguments);
  void propertiesChanged(const Message& message, const Array& arguments);
  void deviceDisconnected(const Message& message, const Array& arguments);

  Result<Message> newCall(const BluezCall& call) const;
  void answerLater(Callback callback, BluezReply reply);

  linux::LinuxRunLoop& loop_;
  Logger logger_;
  std::string address_;
  BluezBusListener* listener_ = nullptr;
  std::unique_ptr<SocketWatch> socketWatch_;
  std::unique_ptr<Timer> attemptTimer_;
  /// What is queued holds this weakly: the one if it is of the object, the other if it is of a
  /// call, which ends with the owner of org.bluez.
  std::shared_ptr<char> life_ = std::make_shared<char>();
  std::shared_ptr<char> era_ = std::make_shared<char>();
  std::unique_ptr<linux::BusConnection> connection_;
  std::vector<linux::BusSlot> subscriptions_;
  linux::BusSlot ownerCall_;
  std::string owner_;  ///< the unique name that has org.bluez, empty for none
  bool isOwnerKnown_ = false;
  std::map<std::uint64_t, linux::BusSlot> calls_;
  std::uint64_t nextCall_ = 0;
};

}  // namespace wrixel2::platform::bluez
