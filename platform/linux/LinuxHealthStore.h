#pragma once

#include <string>

#include "platform/HealthStore.h"

namespace wrixel2::platform::linux {

/// The place of the health database; available where the database could be made or is.
class LinuxHealthStore final : public HealthStore {
 public:
  explicit LinuxHealthStore(std::string databasePath) : databasePath_(std::move(databasePath)) {}

  bool isHealthDataAvailable() const override;

 private:
  std::string databasePath_;
};

}  // namespace wrixel2::platform::linux
