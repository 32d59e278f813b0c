#pragma once

#include <cstdint>
#include <source_location>
#include <string>
#include <string_view>

namespace wrixel2::platform {

/// Levels with the priority each has in the system log (RFC 5424 severities).
enum class LogLevel : std::uint8_t { error = 3, warning = 4, info = 5 };

/// "ERROR", "WARN" or "INFO".
std::string_view levelWord(LogLevel level);

/// "[wrixel2d: module:line] LEVEL: message", the form of every line; the tag is the program's name.
std::string formatLogLine(std::string_view tag, std::string_view module, unsigned line,
                          LogLevel level, std::string_view message);

/// Where log lines go.
class Log {
 public:
  virtual ~Log() = default;
  /// One line in the common form. Line breaks inside the message stay one entry.
  virtual void write(LogLevel level, std::string_view module, unsigned line,
                     std::string_view message) = 0;
  /// A line without the common form, as the cipher's own failures are logged.
  virtual void writePlain(std::string_view message) = 0;
  /// Whether pairing keys and message texts may be shown (--log-private).
  virtual bool showsPrivate() const = 0;

  /// The text itself, or "<private>" unless the log shows private texts.
  std::string privateText(std::string_view text) const;
};

/// One source module's way to the log; the line number is the caller's.
///
/// A module may span files: the daemon's core is "main" in the lines that other programs and people
/// search for. A line beside those names its own file.
class Logger {
 public:
  Logger(Log& log, std::string_view module) : log_(&log), module_(module) {}

  void error(std::string_view message,
             std::source_location where = std::source_location::current()) const;
  void warning(std::string_view message,
               std::source_location where = std::source_location::current()) const;
  void info(std::string_view message,
            std::source_location where = std::source_location::current()) const;

  Log& log() const { return *log_; }
  /// The same log for lines whose module is the caller's file, without folder and ending.
  Logger byFile() const { return Logger(*log_, {}); }

 private:
  void write(LogLevel level, std::string_view message, const std::source_location& where) const;

  Log* log_;
  std::string_view module_;  ///< a literal; empty: the caller's file
};

}  // namespace wrixel2::platform
