#include "bandview/Screen.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "bandview/AlertIcon.h"
#include "bandview/TerminalText.h"

namespace wrixel2::bandview {

namespace {

constexpr std::string_view kPlain = "\x1b[0m";
constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kFaint = "\x1b[2m";
constexpr std::string_view kRed = "\x1b[1;31m";
constexpr std::string_view kGreen = "\x1b[32m";
constexpr std::string_view kYellow = "\x1b[33m";
constexpr std::string_view kCyan = "\x1b[36m";

constexpr int kScreenColumns = 22;  ///< inside the band's frame
constexpr int kScreenRows = 6;
constexpr int kBandColumns = kScreenColumns + 10;  ///< with frame and margins
constexpr int kFactNameColumns = 9;
constexpr int kFactValueColumns = 27;
constexpr int kFactColumns = kFactNameColumns + kFactValueColumns;
constexpr int kFactMargin = 4;  ///< where they stand below the band
constexpr int kLeastColumns = kFactColumns + kFactMargin;
constexpr std::size_t kLeastEvents = 3;  ///< which the hint leaves room for

std::string coloured(std::string_view colour, std::string_view text) {
  return fmt::format("{}{}{}", colour, text, kPlain);
}

std::string repeated(std::string_view text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) {
    result += text;
  }
  return result;
}

/// What the band shows, as plain lines of its screen's width; the first one is the icon.
std::vector<std::string> screenLines(const View& view) {
  std::vector<std::string> lines(kScreenRows, std::string(kScreenColumns, ' '));
  if (!view.displayed) {
    return lines;
  }
  const AlertIcon icon = alertIcon(view.displayed->icon);
  lines[1] = centred(icon.glyph, kScreenColumns);
  lines[2] = centred(icon.name, kScreenColumns);
  const auto text = wrapped(printable(view.displayed->text), kScreenColumns - 2);
  for (std::size_t i = 0; i < text.size() && i + 4 < lines.size(); ++i) {
    lines[i + 4] = centred(text[i], kScreenColumns);
  }
  return lines;
}

/// The band in its frame, each line kBandColumns wide; a running motor moves it to and fro.
std::vector<std::string> bandLines(const View& view) {
  const int shift = view.isVibrating ? (view.leansRight ? 1 : -1) : 0;
  const std::string left(static_cast<std::size_t>(4 + shift), ' ');
  const std::string right(static_cast<std::size_t>(4 - shift), ' ');
  const std::string_view frame = view.isVibrating ? kRed : kCyan;
  const std::string_view buzz = view.isVibrating ? "≋" : " ";

  std::vector<std::string> lines;
  lines.push_back(left + coloured(frame, "╭" + repeated("─", kScreenColumns) + "╮") + right);
  const auto content = screenLines(view);
  for (std::size_t i = 0; i < content.size(); ++i) {
    const bool isMiddle = i >= 1 && i <= 4;
    const std::string mark = isMiddle ? std::string(buzz) : " ";
    // The mark takes the margin's place beside the frame.
    lines.push_back(left.substr(2) + coloured(kRed, mark) + " " + coloured(frame, "│") +
                    coloured(i <= 1 ? kBold : kPlain, content[i]) + coloured(frame, "│") + " " +
                    coloured(kRed, mark) + right.substr(2));
  }
  lines.push_back(left + coloured(frame, "╰" + repeated("─", kScreenColumns) + "╯") + right);
  return lines;
}

std::string linkText(const BandState& band) {
  const std::string link = fitted(printable(band.link), kFactValueColumns - 2);
  if (!band.isInRange) {
    return coloured(kRed, "○") + " out of range";
  }
  if (band.link == "authenticated") {
    return coloured(kGreen, "●") + " " + link;
  }
  return coloured(band.link == "connected" ? kYellow : kFaint, "○") + " " + link;
}

std::string batteryText(int level) {
  const int full = std::clamp((level + 5) / 10, 0, 10);
  return fmt::format("{} {} %",
                     coloured(level > 15 ? kGreen : kRed, repeated("▰", full)) +
                         coloured(kFaint, repeated("▱", 10 - full)),
                     level);
}

/// Year (little-endian), month, day, hour, minute; the rest of the eleven bytes is not shown.
std::string clockText(const platform::Bytes& clock) {
  if (clock.size() < 7) {
    return "unknown";
  }
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", clock[0] + 256 * clock[1], clock[2], clock[3],
                     clock[4], clock[5]);
}

std::vector<std::string> factLines(const View& view) {
  std::vector<std::pair<std::string_view, std::string>> facts;
  if (!view.band) {
    return {coloured(kFaint, "There is no virtual band on"), coloured(kFaint, "this bus.")};
  }
  const BandState& band = *view.band;
  facts.emplace_back("Link", linkText(band));
  facts.emplace_back("Address", fitted(printable(band.address), 17));
  facts.emplace_back("Battery", batteryText(band.battery));
  facts.emplace_back("Clock", clockText(band.clock));
  facts.emplace_back("Steps", fmt::format("{}", band.steps));
  const auto inColour = [](std::string_view colour, std::string_view text) {
    return coloured(colour, fitted(text, kFactValueColumns));
  };
  facts.emplace_back("",
                     inColour(kFaint, fmt::format("{} m, {} kcal", band.distance, band.calories)));
  facts.emplace_back(
      "Heart", inColour(view.heartRate.isMeasuring() ? kYellow : kPlain, view.heartRate.text()));
  facts.emplace_back("Motor", inColour(view.isVibrating ? kRed : kFaint,
                                       view.vibration.empty() ? "still" : view.vibration));
  std::vector<std::string> lines;
  for (const auto& [name, value] : facts) {
    lines.push_back(coloured(kBold, fitted(name, kFactNameColumns)) + value);
  }
  return lines;
}

std::vector<std::string> drawBand(const View& view, int columns) {
  std::vector<std::string> lines = bandLines(view);
  const auto facts = factLines(view);
  if (columns >= kBandColumns + kFactColumns) {
    lines.resize(std::max(lines.size(), facts.size()), std::string(kBandColumns, ' '));
    const std::size_t first = (lines.size() - facts.size()) / 2;
    for (std::size_t i = 0; i < facts.size(); ++i) {
      lines[first + i] += facts[i];
    }
  } else {
    for (const std::string& fact : facts) {
      lines.push_back(std::string(kFactMargin, ' ') + fact);
    }
  }
  return lines;
}

/// The items side by side, in as many lines as it takes.
std::vector<std::string> menuLines(const std::vector<MenuItem>& items, int columns) {
  constexpr int kGap = 2;
  std::vector<std::string> lines;
  int used = columns;
  for (const MenuItem& item : items) {
    const int width = 2 + widthOf(item.label);
    if (used + kGap + width > columns) {
      lines.emplace_back(" ");
      used = 1;
    } else {
      lines.back() += std::string(kGap, ' ');
      used += kGap;
    }
    lines.back() += coloured(kBold, std::string(1, item.key)) + " " + std::string(item.label);
    used += width;
  }
  return lines;
}

std::vector<std::string> hintLines(const std::vector<std::string>& hints, int columns) {
  std::vector<std::string> lines{""};
  for (const std::string& hint : hints) {
    for (const std::string& line : wrapped(printable(hint), columns - 2)) {
      lines.push_back(" " + coloured(kFaint, line));
    }
  }
  return lines;
}

}  // namespace

std::vector<std::string> drawScreen(const View& view, TerminalSize size) {
  constexpr int kLeastRows = kScreenRows + 2;
  if (size.columns < kLeastColumns || size.rows < kLeastRows) {
    return {fitted(fmt::format("The band needs {} columns and {} rows", kLeastColumns, kLeastRows),
                   size.columns)};
  }
  std::vector<std::string> menu = menuLines(view.menu, size.columns);
  auto rows = static_cast<std::size_t>(size.rows);
  if (menu.size() + kLeastRows > rows) {
    menu.clear();
  } else if (menu.size() + kLeastRows < rows) {
    menu.insert(menu.begin(), "");
  }
  rows -= menu.size();

  std::vector<std::string> lines = drawBand(view, size.columns);
  lines.resize(std::min(lines.size(), rows));
  if (lines.size() + 2 <= rows) {
    lines.insert(lines.begin(), {" " + coloured(kBold, "wrixel2 band"), ""});
  }
  std::vector<std::string> hints = hintLines(view.hints, size.columns);
  if (lines.size() + 1 + kLeastEvents + hints.size() > rows) {
    hints.clear();
  }
  rows -= hints.size();
  if (lines.size() + 2 <= rows) {
    lines.emplace_back();
    const std::size_t events = std::min(view.events.size(), rows - lines.size());
    for (std::size_t i = view.events.size() - events; i < view.events.size(); ++i) {
      lines.push_back(" " + fitted(printable(view.events[i]), size.columns - 2));
    }
  }
  // Hints and menu keep their place at the bottom.
  lines.resize(rows);
  lines.insert(lines.end(), hints.begin(), hints.end());
  lines.insert(lines.end(), menu.begin(), menu.end());
  return lines;
}

}  // namespace wrixel2::bandview
