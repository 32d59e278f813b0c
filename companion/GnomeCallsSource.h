#pragma once

#include "companion/BusCallSource.h"

namespace wrixel2::companion {

/// The calls of GNOME's and Phosh's phone app (org.gnome.Calls, session bus), which knows the names
/// of callers.
class GnomeCallsSource final : public BusCallSource {
 public:
  GnomeCallsSource(platform::linux::BusConnection& sessionBus, platform::Log& log);

  /// Older versions cannot, which the log then says.
  void silence(const std::string& call) override;
  void hangUp(const std::string& call) override;

 private:
  void askForCalls() override;
  std::optional<RingingCall> ringingCall(const platform::Dictionary& properties) const override;
  void objectAdded(const std::string& path, const platform::Value& interfaces);
};

}  // namespace wrixel2::companion
