#include "platform/Log.h"

#include <fmt/format.h>

namespace wrixel2::platform {

std::string_view levelWord(LogLevel level) {
  switch (level) {
    case LogLevel::error:
      return "ERROR";
    case LogLevel::warning:
      return "WARN";
    case LogLevel::info:
      return "INFO";
  }
  return "INFO";
}

std::string formatLogLine(std::string_view tag, std::string_view module, unsigned line,
                          LogLevel level, std::string_view message) {
  return fmt::format("[{}: {}:{}] {}: {}", tag, module, line, levelWord(level), message);
}

std::string Log::privateText(std::string_view text) const {
  return std::string(showsPrivate() ? text : "<private>");
}

void Logger::error(std::string_view message, std::source_location where) const {
  write(LogLevel::error, message, where);
}

void Logger::warning(std::string_view message, std::source_location where) const {
  write(LogLevel::warning, message, where);
}

void Logger::info(std::string_view message, std::source_location where) const {
  write(LogLevel::info, message, where);
}

void Logger::write(LogLevel level, std::string_view message,
                   const std::source_location& where) const {
  std::string_view module = module_;
  if (module.empty()) {
    module = where.file_name();
    module.remove_prefix(module.rfind('/') + 1);
    module = module.substr(0, module.find('.'));
  }
  log_->write(level, module, where.line(), message);
}

}  // namespace wrixel2::platform
