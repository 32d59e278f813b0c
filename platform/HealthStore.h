#pragma once

#include <string>
#include <string_view>

#include "platform/Date.h"
#include "platform/Error.h"
#include "platform/UniqueFunction.h"

namespace wrixel2::platform {

/// The quantity type of heart rates, and the unit they are counted in.
inline constexpr std::string_view kHeartRateType = "HKQuantityTypeIdentifierHeartRate";
inline constexpr std::string_view kCountPerMinute = "count/min";

/// One measured value.
struct QuantitySample {
  std::string type;  ///< what was measured, such as kHeartRateType
  std::string unit;
  double quantity = 0;
  Date startDate;
  Date endDate;

  friend bool operator==(const QuantitySample&, const QuantitySample&) = default;
};

/// The place where measured values are kept for the owner.
class HealthStore {
 public:
  /// Gets none on success. Called once, before the operation returns or in a later turn, unless the
  /// program ends before.
  using Completion = UniqueFunction<void(const ErrorOrNone& error)>;

  virtual ~HealthStore() = default;
  /// Whether this device has health data at all.
  virtual bool isHealthDataAvailable() const = 0;
  /// Asks for the permission to add samples of the type; an error is a refusal.
  virtual void requestAuthorizationToShare(std::string_view type, Completion completion) = 0;
  /// Success means that the sample is durable.
  virtual void saveSample(const QuantitySample& sample, Completion completion) = 0;
};

}  // namespace wrixel2::platform
