#pragma once

#include <string>

#include "platform/HealthStore.h"

namespace wrixel2::platform::linux {

/// Whether the database could be made at the path, or is there and may be written.
bool isHealthDatabaseUsable(const std::string& path);

/// The health store as a program sees it that adds nothing to it: it tells whether there is one,
/// and refuses the permission to write. Programs that store samples use SqliteHealthStore, which
/// costs them the database library.
class LinuxHealthStore final : public HealthStore {
 public:
  explicit LinuxHealthStore(std::string databasePath) : databasePath_(std::move(databasePath)) {}

  bool isHealthDataAvailable() const override { return isHealthDatabaseUsable(databasePath_); }
  void requestAuthorizationToShare(std::string_view type, Completion completion) override;
  void saveSample(const QuantitySample& sample, Completion completion) override;

 private:
  std::string databasePath_;
};

}  // namespace wrixel2::platform::linux
