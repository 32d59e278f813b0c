#include "platform/linux/PropertyListUserDefaults.h"

#include <utility>

#include <fmt/format.h>

#include "platform/FileManager.h"
#include "platform/PropertyLists.h"

namespace wrixel2::platform::linux {

PropertyListUserDefaults::PropertyListUserDefaults(PropertyLists& propertyLists, FileManager& files,
                                                   Log& log, std::string path)
    : propertyLists_(propertyLists),
      logger_(log, "PropertyListUserDefaults"),
      path_(std::move(path)) {
  if (!files.fileExistsAtPath(path_)) {
    return;
  }
  auto loaded = propertyLists_.dictionaryWithContentsOfFile(path_);
  if (loaded) {
    values_ = std::move(*loaded);
    return;
  }
  const std::string keptPath = path_ + ".damaged";
  if (files.fileExistsAtPath(keptPath)) {
    files.removeItemAtPath(keptPath);
  }
  const auto keepError = files.copyItemAtPath(path_, keptPath);
  logger_.warning(
      fmt::format("The user defaults start empty: {}; the file is {}", description(loaded.error()),
                  keepError ? "lost: " + description(*keepError) : "kept as " + keptPath));
}

std::optional<Value> PropertyListUserDefaults::objectForKey(std::string_view key) const {
  const auto* value = find(values_, key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

void PropertyListUserDefaults::setObjectForKey(std::string_view key, Value value) {
  const auto* present = find(values_, key);
  if (present == nullptr || *present != value) {
    values_.insert_or_assign(std::string(key), std::move(value));
    hasChanged_ = true;
  }
}

void PropertyListUserDefaults::synchronize() {
  if (!hasChanged_) {
    return;
  }
  if (const auto error = propertyLists_.writeToFileAtomically(path_, values_)) {
    logger_.warning(fmt::format("The user defaults are not written: {}", description(*error)));
    return;
  }
  hasChanged_ = false;
}

}  // namespace wrixel2::platform::linux
