#include "protocol/MBModel/MBBatteryInfoModel.h"

#include <fmt/format.h>

#include "platform/Error.h"
#include "protocol/MBModel/MBDataReader.h"

namespace wrixel2::mbmodel {
namespace {

constexpr std::size_t kPayloadLength = 20;

std::string dateText(const std::optional<platform::Date>& date) {
  return date ? platform::description(*date) : platform::description(std::optional<std::string>());
}

}  // namespace

MBBatteryInfoModel::MBBatteryInfoModel(const platform::Bytes& data,
                                       const platform::TimeZone& localTimeZone) {
  if (data.size() < kPayloadLength) {
    return;
  }
  MBDataReader reader(data);
  reader.rePos(1);
  level_ = reader.readInt(1);
  status_ = reader.readInt(1);
  lastCharge_ = reader.readDate(localTimeZone);
  lastFullCharge_ = reader.readDate(localTimeZone);
  lastLevel_ = reader.readInt(1);
}

std::string MBBatteryInfoModel::description() const {
  return fmt::format(
      "level = {}%, status = {}, lastCharge = {}, lastFullCharge = {}, lastLevel = {}", level_,
      status_, dateText(lastCharge_), dateText(lastFullCharge_), lastLevel_);
}

}  // namespace wrixel2::mbmodel
