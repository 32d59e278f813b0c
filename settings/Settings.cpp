#include "settings/Settings.h"

namespace wrixel2::settings {

namespace {

void addApp(platform::Dictionary& prefs, const std::string& app, const AppSettings& settings) {
  prefs.insert_or_assign(iconKey(app), settings.icon);
  prefs.insert_or_assign(repeatKey(app), settings.repeat);
  prefs.insert_or_assign(patternKey(app), settings.pattern);
  prefs.insert_or_assign(previewKey(app), settings.preview);
}

}  // namespace

std::string iconKey(const std::string& app) { return "MBIcon-" + app; }
std::string repeatKey(const std::string& app) { return "MBRepeat-" + app; }
std::string patternKey(const std::string& app) { return "MBPattern-" + app; }
std::string previewKey(const std::string& app) { return "MBPreview-" + app; }

platform::Dictionary prefsDictionary(const Settings& settings,
                                     const std::vector<std::string>& seenApps) {
  platform::Dictionary prefs = settings.globals;
  if (settings.otherApps) {
    for (const std::string& app : seenApps) {
      addApp(prefs, app, *settings.otherApps);
    }
  }
  for (const auto& [app, appSettings] : settings.apps) {
    addApp(prefs, app, appSettings);
  }
  return prefs;
}

}  // namespace wrixel2::settings
