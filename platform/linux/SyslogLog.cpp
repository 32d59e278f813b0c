#include "platform/linux/SyslogLog.h"

#include <syslog.h>

#include "platform/linux/LogText.h"

namespace wrixel2::platform::linux {

SyslogLog::SyslogLog(std::string_view tag, bool showsPrivate)
    : tag_(tag), showsPrivate_(showsPrivate) {
  ::openlog(tag_.c_str(), LOG_PID, LOG_USER);
}

SyslogLog::~SyslogLog() { ::closelog(); }

void SyslogLog::write(LogLevel level, std::string_view module, unsigned line,
                      std::string_view message) {
  // The levels are the priorities.
  ::syslog(static_cast<int>(level), "%s",
           singleLine(formatLogLine(tag_, module, line, level, message)).c_str());
}

void SyslogLog::writePlain(std::string_view message) {
  ::syslog(LOG_NOTICE, "%s", singleLine(std::string(message)).c_str());
}

}  // namespace wrixel2::platform::linux
