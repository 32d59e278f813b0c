#pragma once

#include <string>

#include <unistd.h>

#include "platform/Log.h"

namespace wrixel2::platform::linux {

/// Standard error, one entry a line (see singleLine()).
class StderrLog final : public Log {
 public:
  StderrLog(std::string_view tag, bool showsPrivate, int descriptor = STDERR_FILENO);

  void write(LogLevel level, std::string_view module, unsigned line,
             std::string_view message) override;
  void writePlain(std::string_view message) override;
  bool showsPrivate() const override { return showsPrivate_; }

 private:
  void writeLine(std::string text) const;

  std::string tag_;
  bool showsPrivate_;
  int descriptor_;
};

}  // namespace wrixel2::platform::linux
