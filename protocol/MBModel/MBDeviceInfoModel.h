#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/Bytes.h"

namespace wrixel2::mbmodel {

/// The device information block.
class MBDeviceInfoModel {
 public:
  MBDeviceInfoModel() = default;
  explicit MBDeviceInfoModel(const platform::Bytes& data);

  /// The first eight bytes as 16 lower-case hexadecimal digits; none before a payload was read.
  const std::optional<std::string>& deviceID() const { return deviceID_; }
  void setDeviceID(std::optional<std::string> text) { deviceID_ = std::move(text); }
  const std::optional<std::string>& profileVersion() const { return profileVersion_; }
  void setProfileVersion(std::optional<std::string> text) { profileVersion_ = std::move(text); }
  const std::optional<std::string>& firmwareVersion() const { return firmwareVersion_; }
  void setFirmwareVersion(std::optional<std::string> text) { firmwareVersion_ = std::move(text); }
  std::uint64_t feature() const { return feature_; }
  void setFeature(std::uint64_t feature) { feature_ = feature; }
  std::uint64_t appearence() const { return appearence_; }
  void setAppearence(std::uint64_t appearence) { appearence_ = appearence; }
  std::uint64_t hardwareVersion() const { return hardwareVersion_; }
  void setHardwareVersion(std::uint64_t version) { hardwareVersion_ = version; }

  /// 16 bytes: the first 8 characters of the identifier's text and the two versions. Deliberately
  /// not the inverse of reading: the field is text, of the length that the bytes have.
  platform::Bytes data() const;

  std::string description() const;

 private:
  std::optional<std::string> deviceID_;
  std::optional<std::string> profileVersion_;
  std::optional<std::string> firmwareVersion_;
  std::uint64_t feature_ = 0;
  std::uint64_t appearence_ = 0;
  std::uint64_t hardwareVersion_ = 0;
};

}  // namespace wrixel2::mbmodel
