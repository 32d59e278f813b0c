#include "platform/linux/HealthDatabase.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxFileManager.h"

namespace wrixel2::platform::linux {

namespace {

/// Goes into the file's header (PRAGMA user_version).
constexpr int kSchemaVersion = 1;

/// How long another program's lock is waited for with each sample.
constexpr int kBusyMilliseconds = 500;

struct Finalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

std::pair<dev_t, ino_t> identity(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

std::int64_t unixMicroseconds(Date date) { return date.time_since_epoch().count(); }

}  // namespace

void HealthDatabase::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

HealthDatabase::HealthDatabase(std::string databasePath, std::string source)
    : path_(std::move(databasePath)), source_(std::move(source)) {}

HealthDatabase::~HealthDatabase() = default;

ErrorOrNone HealthDatabase::save(const QuantitySample& sample) {
  struct stat status{};
  if (database_ && (::stat(path_.c_str(), &status) != 0 || identity(status) != file_)) {
    // What the write-ahead log has goes to where the file went: the log's own name is the next
    // file's.
    execute("PRAGMA wal_checkpoint(TRUNCATE)");
    database_.reset();
    hasFileChanged_ = true;
  }
  auto error = open();
  if (!error) {
    error = insert(sample);
  }
  if (error) {
    // Whatever is wrong with the file may be mended or replaced by the next sample.
    database_.reset();
  }
  return error;
}

bool HealthDatabase::hasFileChanged() { return std::exchange(hasFileChanged_, false); }

Error HealthDatabase::lastError() const {
  const int code = sqlite3_extended_errcode(database_.get());
  std::string what = sqlite3_errmsg(database_.get());
  switch (code & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      what += "; it is left as it is: move it away, and a new one is made";
      break;
    case SQLITE_FULL:
      what += "; free some space";
      break;
    case SQLITE_BUSY:
      what += "; another program holds it";
      break;
    default:
      break;
  }
  return {code, fmt::format("the health database {}: {}", path_, what)};
}

ErrorOrNone HealthDatabase::createFile() {
  if (auto error = makeDirectories(std::filesystem::path(path_).parent_path())) {
    return error;
  }
  const FileDescriptor file(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0) {
    return errorFromErrno(errno, fmt::format("cannot open the health database {}", path_));
  }
  file_ = identity(status);
  return std::nullopt;
}

ErrorOrNone HealthDatabase::open() {
  if (database_) {
    return std::nullopt;
  }
  if (auto error = createFile()) {
    return error;
  }
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(path_.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
  database_.reset(database);
  if (database == nullptr) {
    return Error{SQLITE_NOMEM, "no memory for the health database"};
  }
  auto error = code == SQLITE_OK ? ErrorOrNone() : lastError();
  if (!error) {
    sqlite3_busy_timeout(database, kBusyMilliseconds);
    error = prepareSchema();
  }
  if (error) {
    database_.reset();
  }
  return error;
}

ErrorOrNone HealthDatabase::execute(const char* statement) {
  if (sqlite3_exec(database_.get(), statement, nullptr, nullptr, nullptr) != SQLITE_OK) {
    return lastError();
  }
  return std::nullopt;
}

ErrorOrNone HealthDatabase::prepareSchema() {
  int version = 0;
  {
    sqlite3_stmt* raw = nullptr;
    const int prepared =
        sqlite3_prepare_v2(database_.get(), "PRAGMA user_version", -1, &raw, nullptr);
    const Statement statement(raw);
    if (prepared != SQLITE_OK || sqlite3_step(raw) != SQLITE_ROW) {
      return lastError();
    }
    version = sqlite3_column_int(raw, 0);
  }
  if (version > kSchemaVersion) {
    return Error{
        SQLITE_MISMATCH,
        fmt::format("the health database {} was made by a later version of this program", path_)};
  }
  if (auto error = execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL")) {
    return error;
  }
  if (version == kSchemaVersion) {
    return std::nullopt;
  }
  return execute(
      "BEGIN IMMEDIATE;"
      "CREATE TABLE IF NOT EXISTS sample ("
      "  id INTEGER PRIMARY KEY,"
      "  type TEXT NOT NULL,"
      "  unit TEXT NOT NULL,"
      "  value REAL NOT NULL,"
      "  start_time INTEGER NOT NULL,"
      "  end_time INTEGER NOT NULL,"
      "  source TEXT NOT NULL);"
      "CREATE INDEX IF NOT EXISTS sample_by_type_and_time ON sample (type, start_time);"
      "PRAGMA user_version = 1;"
      "COMMIT");
}

ErrorOrNone HealthDatabase::insert(const QuantitySample& sample) {
  sqlite3_stmt* raw = nullptr;
  const int prepared =
      sqlite3_prepare_v2(database_.get(),
                         "INSERT INTO sample (type, unit, value, start_time, end_time, source) "
                         "VALUES (?1, ?2, ?3, ?4, ?5, ?6)",
                         -1, &raw, nullptr);
  const Statement statement(raw);
  if (prepared != SQLITE_OK) {
    return lastError();
  }
  const auto bindText = [raw](int index, const std::string& text) {
    return sqlite3_bind_text(raw, index, text.data(), static_cast<int>(text.size()),
                             SQLITE_TRANSIENT);
  };
  const bool isBound =
      bindText(1, sample.type) == SQLITE_OK && bindText(2, sample.unit) == SQLITE_OK &&
      sqlite3_bind_double(raw, 3, sample.quantity) == SQLITE_OK &&
      sqlite3_bind_int64(raw, 4, unixMicroseconds(sample.startDate)) == SQLITE_OK &&
      sqlite3_bind_int64(raw, 5, unixMicroseconds(sample.endDate)) == SQLITE_OK &&
      bindText(6, source_) == SQLITE_OK;
  if (!isBound || sqlite3_step(raw) != SQLITE_DONE) {
    return lastError();
  }
  return std::nullopt;
}

}  // namespace wrixel2::platform::linux
