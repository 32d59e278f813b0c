#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// Follows the properties of one interface of an object on a bus
/// (org.freedesktop.DBus.Properties), for as long as it lives.
///
/// The service may come, go and be replaced at any time; it is never started, and never waited for.
class PropertyWatch {
 public:
  /// All properties of the interface; none while the service, or the object, is not there.
  using Properties = std::optional<platform::Dictionary>;
  using Callback = std::function<void(const Properties& properties)>;

  /// Calls back once with the first answer, also if that is none, and then whenever something has
  /// changed; never before start() has returned. The callback may destroy the watch. The bus
  /// outlives the watch; on a connection that has ended nothing is told.
  static std::unique_ptr<PropertyWatch> start(platform::linux::BusConnection& bus,
                                              platform::linux::BusAddress address,
                                              Callback changed);

  PropertyWatch(const PropertyWatch&) = delete;
  PropertyWatch& operator=(const PropertyWatch&) = delete;

 private:
  PropertyWatch(platform::linux::BusConnection& bus, platform::linux::BusAddress address,
                Callback changed)
      : bus_(bus), address_(std::move(address)), changed_(std::move(changed)) {}

  void subscribe();
  void readAll();
  void answered(const platform::linux::BusMessage& reply);
  void ownerChanged(const std::string& owner);
  void propertiesChanged(const platform::linux::BusMessage& message);
  void tell(const Properties& properties);

  platform::linux::BusConnection& bus_;
  platform::linux::BusAddress address_;
  Callback changed_;
  platform::linux::BusSlot ownerChanges_;
  platform::linux::BusSlot propertyChanges_;
  /// While it is pending, changes are not looked at: the answer comes after them and holds them.
  platform::linux::BusSlot pendingRead_;
  std::string owner_;  ///< unique name of who answered; empty while nobody has
  Properties properties_;
  bool isTold_ = false;
};

}  // namespace wrixel2::companion
