#include "ctl/AppAlerts.h"

#include <algorithm>

#include <fmt/format.h>

#include "ctl/TextRows.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

std::int64_t numberOf(const platform::Dictionary& entry, std::string_view key) {
  const auto* value = platform::find(entry, key);
  return value != nullptr ? value->longValue() : 0;
}

}  // namespace

std::vector<SeenApp> seenAppsOf(const platform::Dictionary& companion) {
  std::vector<SeenApp> apps;
  const auto* list = platform::find(companion, "Apps");
  if (list == nullptr || list->array() == nullptr) {
    return apps;
  }
  for (const platform::Value& value : *list->array()) {
    const auto* entry = value.dictionary();
    auto id = entry != nullptr ? platform::textForKey(*entry, "id") : std::nullopt;
    if (id) {
      apps.push_back({std::move(*id), platform::textForKey(*entry, "name").value_or(""),
                      numberOf(*entry, "count"), numberOf(*entry, "last")});
    }
  }
  return apps;
}

const settings::AppSettings* alertOf(const settings::Settings& settings, std::string_view app) {
  const auto own = settings.apps.find(std::string(app));
  if (own != settings.apps.end()) {
    return &own->second;
  }
  return settings.otherApps ? &*settings.otherApps : nullptr;
}

std::string silenceOf(const Context& context, const std::string& app,
                      const std::optional<std::vector<SeenApp>>& seen) {
  const auto editor = settings::SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    return editor.error().localizedDescription;
  }
  const auto* alert = alertOf(editor->settings(), app);
  if (alert == nullptr || alert->icon == 0) {
    return fmt::format(
        "{0} has no icon in the settings, so that the band stays silent; give it "
        "one with \"wrixel2ctl apps set {0} --icon message\"",
        printable(app));
  }
  const bool hasOwn = editor->settings().apps.contains(app);
  if (!hasOwn && seen && std::none_of(seen->begin(), seen->end(), [&app](const SeenApp& known) {
        return known.id == app;
      })) {
    return fmt::format(
        "{0} has never notified, so that the daemon does not know the other apps' "
        "settings for it; give it its own with \"wrixel2ctl apps set {0} --icon "
        "message\"",
        printable(app));
  }
  return {};
}

}  // namespace wrixel2::ctl
