#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/HealthStore.h"
#include "platform/Result.h"

namespace wrixel2::platform::linux {

/// Reads what a SqliteHealthStore has kept, beside the program that writes it: the database is only
/// ever read, so that a writer is not held up.
class SqliteHealthReader {
 public:
  explicit SqliteHealthReader(std::string databasePath) : path_(std::move(databasePath)) {}

  /// The samples of the type that began at or after `from` and before `until`, oldest first. A
  /// database that does not exist, or in which nothing was ever stored, has none. Fails for one
  /// that is damaged, of a later version or not readable.
  Result<std::vector<QuantitySample>> samples(std::string_view type, Date from, Date until) const;

 private:
  std::string path_;
};

}  // namespace wrixel2::platform::linux
