#include "platform/simulated/RecordingLog.h"

#include <algorithm>

#include <fmt/format.h>

namespace wrixel2::platform::simulated {

void RecordingLog::write(LogLevel level, std::string_view module, unsigned /*line*/,
                         std::string_view message) {
  lines_.push_back({level, std::string(module), std::string(message),
                    fmt::format("[wrixel2d: {}] {}: {}", module, levelWord(level), message)});
}

void RecordingLog::writePlain(std::string_view message) {
  lines_.push_back({LogLevel::error, {}, std::string(message), std::string(message)});
}

bool RecordingLog::contains(LogLevel level, std::string_view text) const {
  return std::ranges::any_of(lines_, [&](const RecordedLine& line) {
    return line.level == level && line.message.find(text) != std::string::npos;
  });
}

std::size_t RecordingLog::count(LogLevel level, std::string_view message) const {
  return static_cast<std::size_t>(std::ranges::count_if(lines_, [&](const RecordedLine& line) {
    return line.level == level && line.message == message;
  }));
}

std::vector<std::string> RecordingLog::messages(std::string_view module) const {
  std::vector<std::string> messages;
  for (const auto& line : lines_) {
    if (line.module == module) {
      messages.push_back(line.message);
    }
  }
  return messages;
}

std::vector<std::string> RecordingLog::messages(LogLevel level) const {
  std::vector<std::string> messages;
  for (const auto& line : lines_) {
    if (line.level == level) {
      messages.push_back(line.message);
    }
  }
  return messages;
}

}  // namespace wrixel2::platform::simulated
