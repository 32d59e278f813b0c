#include "platform/linux/SqliteHealthReader.h"

#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

namespace wrixel2::platform::linux {

namespace {

/// The schema that SqliteHealthStore makes.
constexpr int kSchemaVersion = 1;
constexpr int kBusyMilliseconds = 2000;

struct Closer {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
using Database = std::unique_ptr<sqlite3, Closer>;

struct Finalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

Statement prepare(const Database& database, const char* text) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database.get(), text, -1, &statement, nullptr);
  return Statement(statement);  // none where that failed
}

std::string textOf(const Statement& statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
  return text != nullptr
             ? std::string(text,
                           static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column)))
             : std::string();
}

Date dateOf(const Statement& statement, int column) {
  return Date(std::chrono::microseconds(sqlite3_column_int64(statement.get(), column)));
}

/// Of the last failure; NOTADB and CORRUPT name themselves well enough.
Error errorOf(const Database& database, const std::string& path) {
  return {sqlite3_extended_errcode(database.get()),
          fmt::format("the health database {} cannot be read: {}", path,
                      sqlite3_errmsg(database.get()))};
}

Result<int> versionOf(const Database& database, const std::string& path) {
  const auto statement = prepare(database, "PRAGMA user_version");
  if (!statement || sqlite3_step(statement.get()) != SQLITE_ROW) {
    return errorOf(database, path);
  }
  return sqlite3_column_int(statement.get(), 0);
}

}  // namespace

Result<std::vector<QuantitySample>> SqliteHealthReader::samples(std::string_view type, Date from,
                                                                Date until) const {
  std::vector<QuantitySample> samples;
  std::error_code ignored;
  if (!std::filesystem::exists(path_, ignored) && !ignored) {
    return samples;
  }
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(path_.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
  const Database database(raw);
  if (opened != SQLITE_OK) {
    return errorOf(database, path_);
  }
  sqlite3_busy_timeout(raw, kBusyMilliseconds);
  const auto version = versionOf(database, path_);
  if (!version) {
    return version.error();
  }
  if (*version == 0) {
    return samples;  // just made
  }
  if (*version > kSchemaVersion) {
    return Error{
        SQLITE_MISMATCH,
        fmt::format("the health database {} was made by a later version of this program", path_)};
  }
  const auto statement = prepare(database,
                                 "SELECT type, unit, value, start_time, end_time FROM sample "
                                 "WHERE type = ?1 AND start_time >= ?2 AND start_time < ?3 "
                                 "ORDER BY start_time, id");
  if (!statement) {
    return errorOf(database, path_);
  }
  sqlite3_bind_text(statement.get(), 1, type.data(), static_cast<int>(type.size()),
                    SQLITE_TRANSIENT);
  sqlite3_bind_int64(statement.get(), 2, from.time_since_epoch().count());
  sqlite3_bind_int64(statement.get(), 3, until.time_since_epoch().count());
  int stepped = SQLITE_ROW;
  while ((stepped = sqlite3_step(statement.get())) == SQLITE_ROW) {
    samples.push_back({textOf(statement, 0), textOf(statement, 1),
                       sqlite3_column_double(statement.get(), 2), dateOf(statement, 3),
                       dateOf(statement, 4)});
  }
  if (stepped != SQLITE_DONE) {
    return errorOf(database, path_);
  }
  return samples;
}

}  // namespace wrixel2::platform::linux
