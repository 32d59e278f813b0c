#pragma once

#include <memory>
#include <string>

#include "platform/BackgroundWork.h"
#include "platform/HealthStore.h"
#include "platform/Log.h"

namespace wrixel2::platform::linux {

class HealthDatabase;

/// The health store of this machine, in a HealthDatabase that is opened and written beside the
/// loop, in order. A file that was moved or deleted while it was open is a line in the log.
class SqliteHealthStore final : public HealthStore {
 public:
  /// The source stands in each sample: who added it. Work and log outlive the store.
  SqliteHealthStore(std::string databasePath, std::string source, BackgroundWork& work, Log& log);
  ~SqliteHealthStore() override;

  bool isHealthDataAvailable() const override;
  /// Granted where the database can be opened, which this does.
  void requestAuthorizationToShare(std::string_view type, Completion completion) override;
  void saveSample(const QuantitySample& sample, Completion completion) override;

 private:
  template <typename Operation>
  void runInBackground(Operation operation, Completion completion);

  std::string path_;
  BackgroundWork& work_;
  Logger logger_;
  /// Shared with the jobs: only these use it.
  std::shared_ptr<HealthDatabase> database_;
};

}  // namespace wrixel2::platform::linux
