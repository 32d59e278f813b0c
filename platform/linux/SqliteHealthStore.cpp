#include "platform/linux/SqliteHealthStore.h"

#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "platform/linux/HealthDatabase.h"
#include "platform/linux/LinuxHealthStore.h"

namespace wrixel2::platform::linux {

SqliteHealthStore::SqliteHealthStore(std::string databasePath, std::string source,
                                     BackgroundWork& work, Log& log)
    : path_(std::move(databasePath)),
      work_(work),
      logger_(log, "SqliteHealthStore"),
      database_(std::make_shared<HealthDatabase>(path_, std::move(source))) {}

SqliteHealthStore::~SqliteHealthStore() = default;

bool SqliteHealthStore::isHealthDataAvailable() const { return isHealthDatabaseUsable(path_); }

void SqliteHealthStore::requestAuthorizationToShare(std::string_view /*type*/,
                                                    Completion completion) {
  runInBackground([](HealthDatabase& database) { return database.open(); }, std::move(completion));
}

void SqliteHealthStore::saveSample(const QuantitySample& sample, Completion completion) {
  runInBackground([sample](HealthDatabase& database) { return database.save(sample); },
                  std::move(completion));
}

template <typename Operation>
void SqliteHealthStore::runInBackground(Operation operation, Completion completion) {
  const auto answer = std::make_shared<Completion>(std::move(completion));
  const bool isTaken = work_.run([database = database_, operation = std::move(operation), answer,
                                  logger = logger_, path = path_]() -> Task {
    const ErrorOrNone error = operation(*database);
    return [error, hasFileChanged = database->hasFileChanged(), answer, logger, path] {
      if (hasFileChanged) {
        logger.warning(fmt::format(
            "The health database {} was moved or deleted: samples go to a new one", path));
      }
      (*answer)(error);
    };
  });
  if (!isTaken) {
    (*answer)(Error{
        EBUSY, fmt::format("the health database {}: too many samples wait for the disk", path_)});
  }
}

}  // namespace wrixel2::platform::linux
