#include "bandview/Menu.h"

namespace wrixel2::bandview {

Menu::Menu(const std::optional<BandState>& band, bool isCalling)
    : entries_{{{'n', "notify"}, Action::notify}} {
  entries_.push_back(isCalling ? Entry{{'c', "hang up"}, Action::hangUp}
                               : Entry{{'c', "call"}, Action::call});
  entries_.push_back({{'m', "measure"}, Action::measure});
  if (band) {
    entries_.push_back({{'w', "walk"}, Action::walk});
    entries_.push_back({{'b', "button"}, Action::pressButton});
    entries_.push_back(band->isInRange ? Entry{{'r', "leave range"}, Action::leaveRange}
                                       : Entry{{'r', "come back"}, Action::comeBack});
  }
  entries_.push_back({{'q', "quit"}, Action::quit});
}

std::vector<MenuItem> Menu::items() const {
  std::vector<MenuItem> items;
  for (const Entry& entry : entries_) {
    items.push_back(entry.item);
  }
  return items;
}

std::optional<Action> Menu::actionFor(char key) const {
  for (const Entry& entry : entries_) {
    if (entry.item.key == key) {
      return entry.action;
    }
  }
  return std::nullopt;
}

}  // namespace wrixel2::bandview
