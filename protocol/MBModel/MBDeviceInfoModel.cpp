#include "protocol/MBModel/MBDeviceInfoModel.h"

#include <fmt/format.h>

#include "platform/Error.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"
#include "protocol/MBModel/MBHelper.h"

namespace wrixel2::mbmodel {
namespace {

constexpr std::size_t kIdentifierLength = 8;

}  // namespace

MBDeviceInfoModel::MBDeviceInfoModel(const platform::Bytes& data) {
  MBDataReader reader(data);
  // These three deliberately lie inside the identifier: the block says both in the same bytes.
  reader.rePos(4);
  feature_ = reader.readInt(1);
  appearence_ = reader.readInt(1);
  hardwareVersion_ = reader.readInt(1);

  reader.rePos(0);
  std::string identifier;
  for (std::size_t i = 0; i < kIdentifierLength; ++i) {
    identifier += MBHelper::byte2HexString(static_cast<std::uint8_t>(reader.readInt(1)));
  }
  deviceID_ = std::move(identifier);
  profileVersion_ = reader.readVersionString();
  firmwareVersion_ = reader.readVersionString();
}

platform::Bytes MBDeviceInfoModel::data() const {
  return MBDataBuilder()
      .writeString(deviceID_.value_or(""), kIdentifierLength)
      .writeVersionString(profileVersion_.value_or(""))
      .writeVersionString(firmwareVersion_.value_or(""))
      .data();
}

std::string MBDeviceInfoModel::description() const {
  return fmt::format(
      "deviceID = {}, profileVersion = {}, firmwareVersion = {}, feature = {}, appearence = {}, "
      "hardwareVersion = {}",
      platform::description(deviceID_), platform::description(profileVersion_),
      platform::description(firmwareVersion_), feature_, appearence_, hardwareVersion_);
}

}  // namespace wrixel2::mbmodel
