#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/SystemBus.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

/// bluetoothd over sd-bus, on a connection of its own, which is made anew after the bus was gone.
///
/// Only signals of the present owner of org.bluez are
/// passed on, and nothing here starts bluetoothd.
class SdBusBluezBus final : public BluezBus, private linux::SystemBusObserver {
 public:
  /// The machine's own bus unless another D-Bus address is given. Loop and log outlive it.
  SdBusBluezBus(linux::LinuxRunLoop& loop, Log& log, std::string address = {});

  void start(BluezBusListener& listener) override;
  void call(BluezCall call, TimeInterval timeout, Callback callback) override;
  void send(BluezCall call) override;

 private:
  using Message = linux::BusMessage;
  using Handler = void (SdBusBluezBus::*)(const Message& message, const Array& arguments);

  ErrorOrNone busConnected(linux::BusConnection& connection) override;
  void busUnavailable(const Error& error) override;

  ErrorOrNone subscribe();
  ErrorOrNone subscribeTo(const std::string& rule, std::string_view signature, Handler handler);

  void askForOwner();
  void ownerIs(const std::string& owner);
  void ownerChanged(const Message& message, const Array& arguments);
  void interfacesAdded(const Message& message, const Array& arguments);
  void interfacesRemoved(const Message& message, const Array& arguments);
  void propertiesChanged(const Message& message, const Array& arguments);
  void deviceDisconnected(const Message& message, const Array& arguments);

  bool isBusGone() const;
  Result<Message> newCall(const BluezCall& call) const;
  void answerLater(Callback callback, BluezReply reply);

  linux::LinuxRunLoop& loop_;
  Logger logger_;
  BluezBusListener* listener_ = nullptr;
  /// What is queued of a call holds this weakly: it ends with the owner of org.bluez.
  std::shared_ptr<char> era_ = std::make_shared<char>();
  linux::SystemBus systemBus_;
  linux::BusConnection* connection_ = nullptr;  ///< none while there is no bus
  std::vector<linux::BusSlot> subscriptions_;
  linux::BusSlot ownerCall_;
  std::string owner_;  ///< the unique name that has org.bluez, empty for none
  bool isOwnerKnown_ = false;
  std::map<std::uint64_t, linux::BusSlot> calls_;
  std::uint64_t nextCall_ = 0;
};

}  // namespace wrixel2::platform::bluez
