#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace wrixel2::platform {
class Log;
}  // namespace wrixel2::platform

namespace wrixel2::mbmodel {

/// One beat of a vibration: milliseconds on, milliseconds off.
struct VibrationPattern {
  std::uint16_t vibrate = 0;
  std::uint16_t pause = 0;

  friend bool operator==(const VibrationPattern&, const VibrationPattern&) = default;
};

/// One alert for the band.
class MBVibrateModel {
 public:
  MBVibrateModel(std::uint64_t repeat, std::uint64_t icon, std::uint64_t pattern,
                 std::optional<std::string> text);

  /// How many times the pattern is repeated.
  std::uint64_t repeat() const { return repeat_; }
  void setRepeat(std::uint64_t repeat) { repeat_ = repeat; }
  /// 1 to 30, see getIconFromId.
  std::uint64_t iconId() const { return iconId_; }
  void setIconId(std::uint64_t iconId) { iconId_ = iconId; }
  /// 0 to 7, see getPatternFromMode.
  std::uint64_t pattern() const { return pattern_; }
  void setPattern(std::uint64_t pattern) { pattern_ = pattern; }
  const std::optional<std::string>& text() const { return text_; }
  void setText(std::optional<std::string> text) { text_ = std::move(text); }

  std::uint32_t getIconValue() const { return getIconFromId(iconId_); }
  std::uint64_t getVibModeValue() const { return pattern_; }

  /// The three bytes that select the icon on the band, the first lowest. Ids outside 1 to 30
  /// give 1.
  static std::uint32_t getIconFromId(std::uint64_t iconId);
  /// Modes above 7 give 100 ms each.
  static VibrationPattern getPatternFromMode(std::uint64_t mode);

  /// For the log, whose rule on private texts applies to the alert's text.
  std::string description(const platform::Log& log) const;

 private:
  std::uint64_t repeat_;
  std::uint64_t iconId_;
  std::uint64_t pattern_;
  std::optional<std::string> text_;
};

}  // namespace wrixel2::mbmodel
