#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "bandview/View.h"

namespace wrixel2::bandview {

/// What the user can do with a key.
enum class Action : std::uint8_t {
  notify,
  call,
  hangUp,
  measure,
  walk,
  pressButton,
  leaveRange,
  comeBack,
  quit,
};

/// What the keys do as things stand: only what is possible is offered.
class Menu {
 public:
  Menu(const std::optional<BandState>& band, bool isCalling);

  /// In the order in which they are shown.
  std::vector<MenuItem> items() const;
  /// None for a key that does nothing now.
  std::optional<Action> actionFor(char key) const;

 private:
  struct Entry {
    MenuItem item;
    Action action;
  };
  std::vector<Entry> entries_;
};

}  // namespace wrixel2::bandview
