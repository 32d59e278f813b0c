#include "protocol/MBModel/MBLEParamsModel.h"

#include <fmt/format.h>

#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"

namespace wrixel2::mbmodel {
namespace {

/// Units of 1.25 ms as whole milliseconds.
std::uint64_t intervalInMilliseconds(std::uint64_t interval) { return interval * 5 / 4; }

}  // namespace

MBLEParamsModel::MBLEParamsModel(const platform::Bytes& data) {
  MBDataReader reader(data);
  connIntMin_ = reader.readInt(2);
  connIntMax_ = reader.readInt(2);
  latency_ = reader.readInt(2);
  timeout_ = reader.readInt(2);
}

platform::Bytes MBLEParamsModel::data() const {
  return MBDataBuilder()
      .writeInt(connIntMin_, 2)
      .writeInt(connIntMax_, 2)
      .writeInt(latency_, 2)
      .writeInt(timeout_, 2)
      .data();
}

std::string MBLEParamsModel::description() const {
  // The latency is a count of events, but the line has always called it ms; it is kept for whoever
  // searches logs.
  return fmt::format(
      "connIntMin = {}({}) ms, connIntMax = {}({}) ms, latency = {} ms, timeout = {}({}) ms",
      intervalInMilliseconds(connIntMin_), connIntMin_, intervalInMilliseconds(connIntMax_),
      connIntMax_, latency_, timeout_ * 10, timeout_);
}

}  // namespace wrixel2::mbmodel
