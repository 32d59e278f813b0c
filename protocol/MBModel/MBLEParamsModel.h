#pragma once

#include <cstdint>
#include <string>

#include "platform/Bytes.h"

namespace wrixel2::mbmodel {

/// The payload of "connParams": how the band wants its link to be run, four 16-bit fields.
class MBLEParamsModel {
 public:
  MBLEParamsModel() = default;
  explicit MBLEParamsModel(const platform::Bytes& data);

  /// Shortest connection interval, in units of 1.25 ms.
  std::uint64_t connIntMin() const { return connIntMin_; }
  void setConnIntMin(std::uint64_t interval) { connIntMin_ = interval; }
  /// Longest connection interval, in units of 1.25 ms.
  std::uint64_t connIntMax() const { return connIntMax_; }
  void setConnIntMax(std::uint64_t interval) { connIntMax_ = interval; }
  /// How many connection events the band may skip.
  std::uint64_t latency() const { return latency_; }
  void setLatency(std::uint64_t latency) { latency_ = latency; }
  /// Supervision time-out, in units of 10 ms.
  std::uint64_t timeout() const { return timeout_; }
  void setTimeout(std::uint64_t timeout) { timeout_ = timeout; }

  /// The 8 bytes from which the record could be read.
  platform::Bytes data() const;

  std::string description() const;

 private:
  std::uint64_t connIntMin_ = 0;
  std::uint64_t connIntMax_ = 0;
  std::uint64_t latency_ = 0;
  std::uint64_t timeout_ = 0;
};

}  // namespace wrixel2::mbmodel
