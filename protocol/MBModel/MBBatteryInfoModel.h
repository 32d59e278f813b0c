#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Bytes.h"
#include "platform/Date.h"

namespace wrixel2::mbmodel {

/// The payload of "batteryInfo".
class MBBatteryInfoModel {
 public:
  MBBatteryInfoModel() = default;
  /// A payload of less than 20 bytes leaves everything zero and without dates.
  MBBatteryInfoModel(const platform::Bytes& data, const platform::TimeZone& localTimeZone);

  /// Per cent.
  std::uint64_t level() const { return level_; }
  void setLevel(std::uint64_t level) { level_ = level; }
  /// The band's charging state, as it sends it.
  std::uint64_t status() const { return status_; }
  void setStatus(std::uint64_t status) { status_ = status; }
  const std::optional<platform::Date>& lastCharge() const { return lastCharge_; }
  void setLastCharge(std::optional<platform::Date> date) { lastCharge_ = date; }
  const std::optional<platform::Date>& lastFullCharge() const { return lastFullCharge_; }
  void setLastFullCharge(std::optional<platform::Date> date) { lastFullCharge_ = date; }
  /// Per cent at the last charge.
  std::uint64_t lastLevel() const { return lastLevel_; }
  void setLastLevel(std::uint64_t level) { lastLevel_ = level; }

  std::string description() const;

 private:
  std::uint64_t level_ = 0;
  std::uint64_t status_ = 0;
  std::optional<platform::Date> lastCharge_;
  std::optional<platform::Date> lastFullCharge_;
  std::uint64_t lastLevel_ = 0;
};

}  // namespace wrixel2::mbmodel
