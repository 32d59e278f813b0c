#pragma once

#include <memory>
#include <string>

#include "platform/HealthStore.h"

struct sqlite3;

namespace wrixel2::platform::linux {

/// The health store of this machine: one SQLite database that any program can read, in the table
/// `sample`: type, unit, value, start_time and end_time (Unix time in microseconds), source.
///
/// The write-ahead log is synchronised with every sample, so what was saved survives a kill and a
/// loss of power. The file is opened by the
/// first request, and again by the next after any failure: a full disk or another program's lock
/// costs the samples of that time and no more. A database that is damaged, or of a later version,
/// is left as it is.
class SqliteHealthStore final : public HealthStore {
 public:
  /// The source stands in each sample: who added it.
  SqliteHealthStore(std::string databasePath, std::string source);
  SqliteHealthStore(const SqliteHealthStore&) = delete;
  SqliteHealthStore& operator=(const SqliteHealthStore&) = delete;
  ~SqliteHealthStore() override;

  bool isHealthDataAvailable() const override;
  /// Granted where the database can be opened, which this does.
  void requestAuthorizationToShare(std::string_view type, Completion completion) override;
  void saveSample(const QuantitySample& sample, Completion completion) override;

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
  };

  ErrorOrNone open();
  ErrorOrNone createFile() const;
  ErrorOrNone prepareSchema();
  ErrorOrNone execute(const char* statement);
  ErrorOrNone insert(const QuantitySample& sample);
  Error lastError() const;

  std::string path_;
  std::string source_;
  std::unique_ptr<sqlite3, Closer> database_;
};

}  // namespace wrixel2::platform::linux
