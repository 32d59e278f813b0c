#pragma once

#include <cstddef>
#include <optional>
#include <utility>
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
    if (isSlow_) {
      waiting_.push_back(std::move(completion));
    } else {
      completion(saveError);
    }
  }

  /// While it is slow, what is saved is not answered; then it is.
  void setIsSlow(bool isSlow) {
    isSlow_ = isSlow;
    for (const Completion& completion : std::exchange(waiting_, {})) {
      completion(saveError);
    }
  }
  void setIsHealthDataAvailable(bool isAvailable) { isAvailable_ = isAvailable; }
  std::size_t authorizationRequests() const { return authorizationRequests_; }
  const std::vector<QuantitySample>& samples() const { return samples_; }

  ErrorOrNone refusal;    ///< answers the next requests for permission
  ErrorOrNone saveError;  ///< answers the next samples

 private:
  bool isAvailable_ = true;
  bool isSlow_ = false;
  std::vector<Completion> waiting_;
  std::size_t authorizationRequests_ = 0;
  std::vector<QuantitySample> samples_;
};

}  // namespace wrixel2::platform::simulated
