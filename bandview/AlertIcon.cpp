#include "bandview/AlertIcon.h"

#include <array>
#include <cstdint>
#include <string_view>

#include <fmt/format.h>

namespace wrixel2::bandview {

namespace {

struct Row {
  std::uint32_t value;  ///< the bytes, the first one lowest
  std::string_view glyph;
  std::string_view name;  ///< empty: a picture without a meaning of its own
};

/// By icon number, from 1.
constexpr std::array<Row, 30> kIcons = {{
    {0x000003, "♪", "buzz"},  {0xFF01FA, "★", ""},     {0x0301FA, "☀", ""},
    {0x0000FE, "♡", "pulse"}, {0x000101, "✆", ""},     {0x0501FA, "☁", ""},
    {0x0201FA, "☂", ""},      {0x0101FA, "☺", ""},     {0x000105, "✉", "message"},
    {0x0601FA, "✎", ""},      {0x0901FA, "⚑", ""},     {0x0401FA, "♫", ""},
    {0x0001FA, "✿", ""},      {0x0801FA, "❄", ""},     {0x0701FA, "☼", ""},
    {0x1B01FA, "♠", ""},      {0x1901FA, "♣", ""},     {0x1701FA, "♦", ""},
    {0x0C01FA, "✈", ""},      {0x1501FA, "♞", ""},     {0x1601FA, "♜", ""},
    {0x1C01FA, "♛", ""},      {0x1D01FA, "☘", ""},     {0x1E01FA, "☯", ""},
    {0x1801FA, "⚙", ""},      {0x000001, "♩", "buzz"}, {0x0A01FA, "◷", "alarm"},
    {0x000002, "♬", "buzz"},  {0x000103, "☎", "call"}, {0x000000, "○", "none"},
}};

}  // namespace

AlertIcon alertIcon(platform::ByteView bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < bytes.size() && i < 3; ++i) {
    value |= std::uint32_t{bytes[i]} << (8 * i);
  }
  for (std::size_t i = 0; i < kIcons.size(); ++i) {
    if (bytes.size() <= 3 && kIcons[i].value == value) {
      const std::string number = fmt::format("icon {}", i + 1);
      return {std::string(kIcons[i].glyph),
              kIcons[i].name.empty() ? number : fmt::format("{} ({})", kIcons[i].name, number)};
    }
  }
  return {"?", "icon " + platform::hexText(bytes)};
}

}  // namespace wrixel2::bandview
