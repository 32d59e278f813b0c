#include "platform/linux/StderrLog.h"

#include <utility>

#include <errno.h>

#include "platform/linux/LogText.h"

namespace wrixel2::platform::linux {
namespace {

void writeWhole(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const auto written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return;  // there is no place left where this could be told
    }
    text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
}

}  // namespace

StderrLog::StderrLog(std::string_view tag, bool showsPrivate, int descriptor)
    : tag_(tag), showsPrivate_(showsPrivate), descriptor_(descriptor) {}

void StderrLog::write(LogLevel level, std::string_view module, unsigned line,
                      std::string_view message) {
  writeLine(formatLogLine(tag_, module, line, level, message));
}

void StderrLog::writePlain(std::string_view message) { writeLine(std::string(message)); }

void StderrLog::writeLine(std::string text) const {
  writeWhole(descriptor_, singleLine(std::move(text)) + '\n');
}

}  // namespace wrixel2::platform::linux
