#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bandview/HeartRate.h"
#include "platform/Bytes.h"

namespace wrixel2::bandview {

/// What the band says of itself.
struct BandState {
  std::string link;  ///< "disconnected", "connected" or "authenticated"
  std::string address;
  int battery = 0;  ///< per cent
  std::uint32_t steps = 0;
  std::uint32_t distance = 0;  ///< metres
  std::uint32_t calories = 0;  ///< kilocalories
  platform::Bytes clock;       ///< as its characteristic has it
  bool isInRange = true;
};

/// What stands on the band's screen.
struct Displayed {
  platform::Bytes icon;
  std::string text;
};

/// What one key does.
struct MenuItem {
  char key;
  std::string_view label;
};

/// Everything that is drawn.
struct View {
  std::optional<BandState> band;  ///< none: there is no virtual band on the bus
  std::optional<Displayed> displayed;
  HeartRate heartRate;
  std::string vibration;            ///< the pattern in words; empty without one
  bool isVibrating = false;         ///< the motor runs at this moment
  bool leansRight = false;          ///< which way a running motor has shaken the band
  std::vector<std::string> events;  ///< newest last
  std::vector<std::string> hints;   ///< how to send something
  std::vector<MenuItem> menu;
};

struct TerminalSize {
  int columns = 80;
  int rows = 24;
};

}  // namespace wrixel2::bandview
