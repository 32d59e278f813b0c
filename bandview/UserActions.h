#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Result.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::bandview {

/// Does what happens around the daemon in everyday life, in the way in which it reaches the daemon
/// from other programs: what apps, the phone, the wearer and the band do.
///
/// Errors are sentences for the user; most mean that the program which should act is not there.
class UserActions {
 public:
  /// The bus outlives it.
  explicit UserActions(platform::linux::BusConnection& bus) : bus_(bus) {}

  /// A desktop notification, another one each time.
  platform::ErrorOrNone notify();
  platform::ErrorOrNone call();
  platform::ErrorOrNone hangUp();
  /// Asks for one heart-rate measurement, as the settings' owner would.
  platform::ErrorOrNone measure();
  /// A hundred steps on top of what the band has counted.
  platform::ErrorOrNone walk();
  platform::ErrorOrNone pressButton();
  platform::ErrorOrNone setIsInRange(bool isInRange);

 private:
  platform::ErrorOrNone addToCounter(const char* counter, std::uint32_t amount);
  platform::ErrorOrNone sendPhoneCall(const platform::Dictionary& userInfo);
  platform::ErrorOrNone callMethod(const platform::linux::BusAddress& address,
                                   std::string_view member, std::string_view signature,
                                   const platform::Array& arguments);

  platform::linux::BusConnection& bus_;
  std::size_t notifications_ = 0;
};

}  // namespace wrixel2::bandview
