#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"

namespace wrixel2::platform::simulated {

/// One line as it was logged. The source line number is left out: it changes with every edit.
struct RecordedLine {
  LogLevel level = LogLevel::info;
  std::string module;  ///< empty for a plain line
  std::string message;
  /// "[wrixel2d: module] LEVEL: message", or the message alone for a plain line.
  std::string text;
};

/// Keeps what is logged, for tests to look at.
class RecordingLog final : public Log {
 public:
  void write(LogLevel level, std::string_view module, unsigned line,
             std::string_view message) override;
  /// Counts as an error line.
  void writePlain(std::string_view message) override;
  bool showsPrivate() const override { return showsPrivate_; }

  void setShowsPrivate(bool shows) { showsPrivate_ = shows; }

  const std::vector<RecordedLine>& lines() const { return lines_; }
  /// Whether a line of the level has the text in its message.
  bool contains(LogLevel level, std::string_view text) const;
  /// Lines of the level whose whole message is the text.
  std::size_t count(LogLevel level, std::string_view message) const;
  /// The messages of one module, or of one level, in order.
  std::vector<std::string> messages(std::string_view module) const;
  std::vector<std::string> messages(LogLevel level) const;
  void clear() { lines_.clear(); }

 private:
  std::vector<RecordedLine> lines_;
  bool showsPrivate_ = false;
};

}  // namespace wrixel2::platform::simulated
