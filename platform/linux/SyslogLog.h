#pragma once

#include <string>

#include "platform/Log.h"

namespace wrixel2::platform::linux {

/// The system log, syslog(3), one line an entry (see singleLine()). One a process: the C library
/// keeps the identification.
class SyslogLog final : public Log {
 public:
  SyslogLog(std::string_view tag, bool showsPrivate);
  ~SyslogLog() override;
  SyslogLog(const SyslogLog&) = delete;
  SyslogLog& operator=(const SyslogLog&) = delete;

  void write(LogLevel level, std::string_view module, unsigned line,
             std::string_view message) override;
  void writePlain(std::string_view message) override;
  bool showsPrivate() const override { return showsPrivate_; }

 private:
  std::string tag_;
  bool showsPrivate_;
};

}  // namespace wrixel2::platform::linux
