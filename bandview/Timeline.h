#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Clock.h"

namespace wrixel2::bandview {

/// What happens to one notification on its way to the wrist.
enum class Stage : std::uint8_t { message, write, icon, vibration, text };

/// When the stages of the first notification came.
class Timeline {
 public:
  /// Only the first of a kind counts, and nothing before the message.
  void note(Stage stage, platform::MonotonicTime now);

  bool isComplete() const;
  /// The first stage that has not come, in words.
  std::optional<std::string_view> missing() const;
  /// A line for each stage that came, in milliseconds since the message.
  std::string report() const;

 private:
  static constexpr std::size_t kStages = 5;
  std::array<std::optional<platform::MonotonicTime>, kStages> times_;
};

}  // namespace wrixel2::bandview
