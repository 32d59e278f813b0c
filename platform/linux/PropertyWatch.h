#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/linux/BusService.h"

namespace wrixel2::platform::linux {

/// Follows the properties of one interface of an object on a bus
/// (org.freedesktop.DBus.Properties), for as long as it lives.
///
/// The service may come, go and be replaced at any time; it is never started, and never waited for.
class PropertyWatch {
 public:
  /// All properties of the interface; none while the service, or the object, is not there.
  using Properties = std::optional<Dictionary>;
  using Callback = std::function<void(const Properties& properties)>;

  /// Calls back once with the first answer, also if that is none, and then whenever something has
  /// changed; never before this has returned. The callback may destroy the watch. The bus outlives
  /// the watch; on a connection that has ended nothing is told. For the time see BusService.
  PropertyWatch(BusConnection& bus, const BusAddress& address, Callback changed,
                TimeInterval answerTime = BusConnection::kDefaultTimeout);
  PropertyWatch(const PropertyWatch&) = delete;
  PropertyWatch& operator=(const PropertyWatch&) = delete;

  /// Asks for all of them anew: for what changes without being announced.
  void refresh();

  BusService& service() { return service_; }

 private:
  void propertiesChanged(const Array& arguments);
  void tell(const Properties& properties);

  BusService service_;
  std::string path_;
  std::string interface_;
  Callback changed_;
  Properties properties_;
  bool isTold_ = false;
};

}  // namespace wrixel2::platform::linux
