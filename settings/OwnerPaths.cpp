#include "settings/OwnerPaths.h"

#include "platform/linux/XdgDirectories.h"

namespace wrixel2::settings {

platform::Result<OwnerPaths> OwnerPaths::standard() {
  const auto directories = platform::linux::XdgDirectories::ofThisUser();
  if (!directories) {
    return directories.error();
  }
  return OwnerPaths{
      directories->config + "/wrixel2/settings.toml", directories->data + "/wrixel2/MiFit",
      directories->state + "/wrixel2/apps.plist", directories->state + "/wrixel2/companion.plist"};
}

}  // namespace wrixel2::settings
