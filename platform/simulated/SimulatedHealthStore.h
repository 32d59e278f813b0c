#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "platform/HealthStore.h"

namespace wrixel2::platform::simulated {

/// A health store in memory, whose answers tests can choose.
class SimulatedHealthStore final : public HealthStore {
 public:
  bool isHealthDataAvailable() const override { return isAvailable_; }
  void requestAuthorizationToShare(std::string_view, Completion completion) override {
    ++authorizationRequests_;
    completion(refusal);
  }
  void saveSample(const QuantitySample& sample, Completion completion) override {
    if (!saveError) {
      samples_.push_back(sample);
    }
    completion(saveError);
  }

  void setIsHealthDataAvailable(bool isAvailable) { isAvailable_ = isAvailable; }
  std::size_t authorizationRequests() const { return authorizationRequests_; }
  const std::vector<QuantitySample>& samples() const { return samples_; }

  ErrorOrNone refusal;    ///< answers the next requests for permission
  ErrorOrNone saveError;  ///< answers the next samples

 private:
  bool isAvailable_ = true;
  std::size_t authorizationRequests_ = 0;
  std::vector<QuantitySample> samples_;
};

}  // namespace wrixel2::platform::simulated
