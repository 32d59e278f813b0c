#include "protocol/MBModel/MBVibrateModel.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "platform/Error.h"
#include "platform/Log.h"

namespace wrixel2::mbmodel {
namespace {

// FA 01 xx goes out as xx of the band's own icon set; the others are categories of its alerts.
constexpr std::array<std::uint32_t, 30> kIcons = {
    0x000003, 0xFF01FA, 0x0301FA, 0x0000FE, 0x000101, 0x0501FA, 0x0201FA, 0x0101FA,
    0x000105, 0x0601FA, 0x0901FA, 0x0401FA, 0x0001FA, 0x0801FA, 0x0701FA, 0x1B01FA,
    0x1901FA, 0x1701FA, 0x0C01FA, 0x1501FA, 0x1601FA, 0x1C01FA, 0x1D01FA, 0x1E01FA,
    0x1801FA, 0x000001, 0x0A01FA, 0x000002, 0x000103, 0x000000};
constexpr std::uint32_t kUnknownIcon = 1;

constexpr std::array<VibrationPattern, 8> kPatterns = {
    {{500, 500}, {250, 250}, {150, 150}, {350, 100}, {50, 50}, {1000, 5}, {300, 200}, {75, 1500}}};
constexpr VibrationPattern kUnknownPattern = {100, 100};

}  // namespace

MBVibrateModel::MBVibrateModel(std::uint64_t repeat, std::uint64_t icon, std::uint64_t pattern,
                               std::optional<std::string> text)
    : repeat_(repeat), iconId_(icon), pattern_(pattern), text_(std::move(text)) {}

std::uint32_t MBVibrateModel::getIconFromId(std::uint64_t iconId) {
  return iconId >= 1 && iconId <= kIcons.size() ? kIcons[iconId - 1] : kUnknownIcon;
}

VibrationPattern MBVibrateModel::getPatternFromMode(std::uint64_t mode) {
  return mode < kPatterns.size() ? kPatterns[mode] : kUnknownPattern;
}

std::string MBVibrateModel::description(const platform::Log& log) const {
  const std::string text =
      text_ ? log.privateText(*text_) : platform::description(std::optional<std::string>());
  return fmt::format("Repeat {} Icon {} Pattern {} Text: {}", repeat_, iconId_, pattern_, text);
}

}  // namespace wrixel2::mbmodel
