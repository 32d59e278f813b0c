#include "protocol/MBModel/MBActivityModel.h"

#include <fmt/format.h>

#include "protocol/MBModel/MBDataReader.h"

namespace wrixel2::mbmodel {

MBActivityModel::MBActivityModel(const platform::Bytes& data) {
  constexpr std::size_t kPayloadLength = 13;
  if (data.size() < kPayloadLength) {
    return;
  }
  MBDataReader reader(data);
  reader.rePos(1);
  steps_ = reader.readInt(4);
  distance_ = reader.readInt(4);
  calories_ = reader.readInt(4);
}

std::string MBActivityModel::description() const {
  return fmt::format("steps = {}, distance = {}m, calories = {}", steps_, distance_, calories_);
}

}  // namespace wrixel2::mbmodel
