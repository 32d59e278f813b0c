#pragma once

#include <memory>
#include <string>
#include <utility>

#include <sys/types.h>

#include "platform/HealthStore.h"

struct sqlite3;

namespace wrixel2::platform::linux {

/// The file of the health store: one SQLite database that any program can read, in the table
/// `sample`: type, unit, value, start_time and end_time (Unix time in microseconds), source.
///
/// The write-ahead log is synchronised with every sample, so what was saved survives a kill and a
/// loss of power. The file is opened by the first request, and again by the next after any failure:
/// a full disk or another program's lock costs the samples of that time and no more. One that was
/// moved or deleted while it was open is followed by a new one. A database that is damaged, or of a
/// later version, is left as it is.
///
/// Everything here waits for the disk.
class HealthDatabase {
 public:
  /// The source stands in each sample: who added it.
  HealthDatabase(std::string path, std::string source);
  HealthDatabase(const HealthDatabase&) = delete;
  HealthDatabase& operator=(const HealthDatabase&) = delete;
  ~HealthDatabase();

  ErrorOrNone open();
  /// The sample is durable when this returns none.
  ErrorOrNone save(const QuantitySample& sample);
  /// Whether, since the last call, the file at the path was found to be another one.
  bool hasFileChanged();

 private:
  struct Closer {
    void operator()(sqlite3* database) const;
  };

  ErrorOrNone createFile();
  ErrorOrNone prepareSchema();
  ErrorOrNone execute(const char* statement);
  ErrorOrNone insert(const QuantitySample& sample);
  Error lastError() const;

  std::string path_;
  std::string source_;
  std::unique_ptr<sqlite3, Closer> database_;
  /// Device and inode of the one that is open.
  std::pair<dev_t, ino_t> file_;
  bool hasFileChanged_ = false;
};

}  // namespace wrixel2::platform::linux
