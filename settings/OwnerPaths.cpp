#include "settings/OwnerPaths.h"

#include "platform/linux/XdgDirectories.h"

namespace wrixel2::settings {

platform::Result<OwnerPaths> OwnerPaths::standard() {
  const auto directories = platform::linux::XdgDirectories::ofThisUser();
  if (!directories) {
    return directories.error();
  }
  const std::string state = directories->state + "/wrixel2";
  return OwnerPaths{.settingsFile = directories->config + "/wrixel2/settings.toml",
                    .settingsCopy = state + "/settings.toml",
                    .miFit = directories->data + "/wrixel2/MiFit",
                    .seenApps = state + "/apps.plist",
                    .companionDefaults = state + "/companion.plist"};
}

}  // namespace wrixel2::settings
