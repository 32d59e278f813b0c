#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/Context.h"
#include "settings/Settings.h"

namespace wrixel2::ctl {

/// An app that has notified, as the companion counts them.
struct SeenApp {
  std::string id;
  std::string name;
  std::int64_t count = 0;
  std::int64_t last = 0;  ///< Unix seconds
};

/// Of the companion's properties; what is no app is left out.
std::vector<SeenApp> seenAppsOf(const platform::Dictionary& companion);

/// What an app gets: from its own table, else of all other apps'. None where there is neither.
const settings::AppSettings* alertOf(const settings::Settings& settings, std::string_view app);

/// Why the band will stay silent for the app, by the settings file; empty where it will not. The
/// daemon knows other apps' settings only for those that have notified: `seen` says who has, none
/// that it is not known.
std::string silenceOf(const Context& context, const std::string& app,
                      const std::optional<std::vector<SeenApp>>& seen);

}  // namespace wrixel2::ctl
