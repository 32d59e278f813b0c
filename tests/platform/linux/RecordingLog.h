#pragma once

#include <string>
#include <vector>

#include "platform/Log.h"

namespace wrixel2::platform::linux {

/// Keeps "LEVEL message" of every line.
class RecordingLog final : public Log {
 public:
  void write(LogLevel level, std::string_view /*module*/, unsigned /*line*/,
             std::string_view message) override {
    lines.push_back(std::string(levelWord(level)) + " " + std::string(message));
  }
  void writePlain(std::string_view message) override { lines.emplace_back(message); }
  bool showsPrivate() const override { return false; }

  bool contains(std::string_view part) const { return count(part) > 0; }
  std::size_t count(std::string_view part) const {
    std::size_t found = 0;
    for (const auto& line : lines) {
      found += line.find(part) == std::string::npos ? 0 : 1;
    }
    return found;
  }

  std::vector<std::string> lines;
};

}  // namespace wrixel2::platform::linux
