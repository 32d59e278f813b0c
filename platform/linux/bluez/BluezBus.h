#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Date.h"
#include "platform/Error.h"
#include "platform/UniqueFunction.h"
#include "platform/Value.h"

namespace wrixel2::platform::bluez {

/// Names of BlueZ's D-Bus interfaces (its adapter, device and GATT API documents).
inline constexpr std::string_view kBluezName = "org.bluez";
inline constexpr std::string_view kBluezRoot = "/org/bluez";
inline constexpr std::string_view kObjectManagerInterface = "org.freedesktop.DBus.ObjectManager";
inline constexpr std::string_view kAdapterInterface = "org.bluez.Adapter1";
inline constexpr std::string_view kDeviceInterface = "org.bluez.Device1";
inline constexpr std::string_view kServiceInterface = "org.bluez.GattService1";
inline constexpr std::string_view kCharacteristicInterface = "org.bluez.GattCharacteristic1";
inline constexpr std::string_view kDescriptorInterface = "org.bluez.GattDescriptor1";

/// An entry of an a{sv} argument with the type that bluetoothd insists on.
struct BluezOption {
  std::string_view name;
  std::string_view signature;
  Value value;
};

/// A call to bluetoothd: its arguments are the bytes, if any, and then the options, if any.
struct BluezCall {
  std::string path;
  std::string_view interface;
  std::string_view member;
  std::optional<Bytes> value = std::nullopt;
  std::optional<std::vector<BluezOption>> options = std::nullopt;
};

/// What came back: values, or the name and text of an error.
struct BluezReply {
  Array values;
  std::string errorName;
  std::string errorText;

  bool isError() const { return !errorName.empty(); }
};

/// What happens on the bus, in the order in which it arrives, each in a turn of the loop.
class BluezBusListener {
 public:
  virtual ~BluezBusListener() = default;

  /// The bus cannot be reached, or was lost. What was known of bluetoothd is void.
  virtual void busUnavailable(const Error& error) = 0;
  /// Whether bluetoothd is there: once after the bus was reached, and on each change. A new one
  /// in place of another is reported as gone and then there.
  virtual void bluezOwnerChanged(bool isThere) = 0;

  virtual void interfacesAdded(const std::string& path, const Dictionary& interfaces) = 0;
  virtual void interfacesRemoved(const std::string& path, const Array& interfaces) = 0;
  virtual void propertiesChanged(const std::string& path, const std::string& interface,
                                 const Dictionary& changed, const Array& invalidated) = 0;
  /// Device1's signal of the same name, of bluetoothd 5.83 and later: the reason is a name such as
  /// "org.bluez.Reason.Timeout".
  virtual void deviceDisconnected(const std::string& path, const std::string& reason) = 0;

 protected:
  BluezBusListener() = default;
  BluezBusListener(const BluezBusListener&) = default;
  BluezBusListener& operator=(const BluezBusListener&) = default;
};

/// One client of bluetoothd. It keeps trying to reach the bus, without polling, as long as it
/// lives.
///
/// Calls are sent, and replies and events arrive, in order. When bluetoothd goes away or the bus is
/// lost, pending calls are dropped without an answer, before the listener is told; so they are when
/// this is destroyed.
class BluezBus {
 public:
  using Callback = UniqueFunction<void(const BluezReply& reply)>;

  virtual ~BluezBus() = default;

  /// Once. The listener outlives the bus and is not called inside this operation.
  virtual void start(BluezBusListener& listener) = 0;
  /// Answered at most once; a reply that does not come in time is the error
  /// org.freedesktop.DBus.Error.NoReply. Never answered inside this operation.
  virtual void call(BluezCall call, TimeInterval timeout, Callback callback) = 0;
  /// Without an answer. On its way when it returns, also if the process ends right after.
  virtual void send(BluezCall call) = 0;
};

}  // namespace wrixel2::platform::bluez
