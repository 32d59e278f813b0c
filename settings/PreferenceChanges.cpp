#include "settings/PreferenceChanges.h"

#include <bitset>

#include "settings/GlobalKeys.h"

namespace wrixel2::settings {

namespace {

using Announcements = std::bitset<kAnnouncementNames.size()>;

void noteDifferences(Announcements& changed, const platform::Dictionary& one,
                     const platform::Dictionary& other) {
  for (const auto& [name, value] : one) {
    const platform::Value* counterpart = platform::find(other, name);
    if (counterpart == nullptr || *counterpart != value) {
      const GlobalKey* key = findGlobalKey(name);
      changed.set(static_cast<std::size_t>(key != nullptr ? key->announcement : Announcement::hk));
    }
  }
}

}  // namespace

std::vector<std::string_view> preferenceChanges(const platform::Dictionary& before,
                                                const platform::Dictionary& after) {
  Announcements changed;
  noteDifferences(changed, before, after);
  noteDifferences(changed, after, before);
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < changed.size(); ++i) {
    if (changed.test(i)) {
      names.push_back(kAnnouncementNames[i]);
    }
  }
  return names;
}

}  // namespace wrixel2::settings
