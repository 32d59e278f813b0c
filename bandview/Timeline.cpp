#include "bandview/Timeline.h"

#include <fmt/format.h>

namespace wrixel2::bandview {

namespace {

constexpr std::array<std::string_view, 5> kNames = {"message in", "first write", "icon",
                                                    "vibration", "text"};

}  // namespace

void Timeline::note(Stage stage, platform::MonotonicTime now) {
  auto& time = times_[static_cast<std::size_t>(stage)];
  if (!time && (stage == Stage::message || times_[0])) {
    time = now;
  }
}

bool Timeline::isComplete() const { return !missing(); }

std::optional<std::string_view> Timeline::missing() const {
  for (std::size_t i = 0; i < kStages; ++i) {
    if (!times_[i]) {
      return kNames[i];
    }
  }
  return std::nullopt;
}

std::string Timeline::report() const {
  std::string lines;
  for (std::size_t i = 0; i < kStages; ++i) {
    if (times_[i]) {
      const auto since =
          std::chrono::duration_cast<std::chrono::milliseconds>(*times_[i] - *times_[0]);
      lines += fmt::format("{:<12} {:>6} ms\n", kNames[i], since.count());
    }
  }
  return lines;
}

}  // namespace wrixel2::bandview
