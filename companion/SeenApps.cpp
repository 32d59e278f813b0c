#include "companion/SeenApps.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;

constexpr std::size_t kLongestText = 255;

/// Whether it can stand in the file, and is no more than an identifier or a name.
bool isKeepable(std::string_view text) {
  return text.size() <= kLongestText && std::none_of(text.begin(), text.end(), [](char c) {
           return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
         });
}

std::int64_t numberForKey(const Dictionary& dictionary, std::string_view key) {
  const auto* value = platform::find(dictionary, key);
  return value == nullptr ? 0 : value->longValue();
}

SeenApp appFrom(const Dictionary& entry) {
  return {platform::textForKey(entry, "id").value_or(""),
          platform::textForKey(entry, "name").value_or(""), numberForKey(entry, "count"),
          numberForKey(entry, "first"), numberForKey(entry, "last")};
}

Dictionary entryFrom(const SeenApp& app) {
  return {{"id", app.identifier},
          {"name", app.name},
          {"count", app.count},
          {"first", app.first},
          {"last", app.last}};
}

}  // namespace

SeenApps::SeenApps(platform::RunLoop& loop, const platform::Clock& clock,
                   platform::PropertyLists& lists, platform::Log& log, std::string path)
    : loop_(loop), clock_(clock), lists_(lists), logger_(log, "SeenApps"), path_(std::move(path)) {}

SeenApps::~SeenApps() {
  if (isChanged_) {
    write();
  }
}

void SeenApps::load() {
  const auto file = lists_.dictionaryWithContentsOfFile(path_);
  if (!file) {
    if (file.error().code != ENOENT) {
      logger_.warning(fmt::format("The list of apps begins anew: {}", description(file.error())));
    }
    return;
  }
  const auto* entries = platform::find(*file, "apps");
  if (entries == nullptr || entries->array() == nullptr) {
    logger_.warning(fmt::format("The list of apps begins anew: {} has none", path_));
    return;
  }
  for (const auto& entry : *entries->array()) {
    if (entry.dictionary() != nullptr) {
      add(appFrom(*entry.dictionary()));
    }
  }
}

void SeenApps::add(SeenApp app) {
  const bool isKnown = std::any_of(apps_.begin(), apps_.end(), [&app](const SeenApp& known) {
    return known.identifier == app.identifier;
  });
  if (app.identifier.empty() || !isKeepable(app.identifier) || isKnown) {
    return;
  }
  if (apps_.size() == kMostApps) {
    apps_.erase(apps_.begin());
  }
  apps_.push_back(std::move(app));
}

void SeenApps::noted(const std::string& identifier, const std::string& name) {
  if (identifier.empty() || !isKeepable(identifier)) {
    return;
  }
  const std::int64_t now =
      std::chrono::floor<std::chrono::seconds>(clock_.now()).time_since_epoch().count();
  const auto known = std::find_if(apps_.begin(), apps_.end(), [&identifier](const SeenApp& app) {
    return app.identifier == identifier;
  });
  const bool isNew = known == apps_.end();
  if (isNew) {
    add({identifier, {}, 0, now, now});
  } else {
    std::rotate(known, known + 1, apps_.end());
  }
  SeenApp& app = apps_.back();
  ++app.count;
  app.last = now;
  if (!name.empty() && isKeepable(name)) {
    app.name = name;
  }
  isChanged_ = true;
  if (isNew) {
    write();
  } else if (!laterWrite_) {
    laterWrite_ = loop_.scheduledTimer(kWriteInterval, false, [this] { write(); });
  }
}

void SeenApps::write() {
  laterWrite_.reset();
  Array entries;
  for (const SeenApp& app : apps_) {
    entries.emplace_back(entryFrom(app));
  }
  const auto error = lists_.writeToFileAtomically(path_, {{"apps", std::move(entries)}});
  isChanged_ = error.has_value();
  // Once for each time that it begins to fail.
  if (error && !isFailureLogged_) {
    logger_.error(fmt::format("The list of apps is not kept: {}", description(*error)));
  }
  isFailureLogged_ = error.has_value();
}

}  // namespace wrixel2::companion
