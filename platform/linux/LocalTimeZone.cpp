#include "platform/linux/LocalTimeZone.h"

#include <utility>

#include <stdlib.h>
#include <time.h>

namespace wrixel2::platform::linux {

LocalTimeZone::LocalTimeZone(std::string localtimePath)
    : localtimePath_(std::move(localtimePath)),
      followsFile_(localtimePath_ != kLocaltimePath || ::getenv("TZ") == nullptr) {
  reload();
}

void LocalTimeZone::reload() {
  if (followsFile_) {
    // C libraries read the file again only when TZ is another text than before, whatever became of
    // the file: so it is another text for a moment.
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    if (localtimePath_ == kLocaltimePath) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", (":" + localtimePath_).c_str(), 1);
    }
  }
  ::tzset();
}

int LocalTimeZone::secondsFromGMT(Date date) const {
  const time_t moment = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  tm local{};
  // Fails only for years that no calendar here reaches.
  return ::localtime_r(&moment, &local) == nullptr ? 0 : static_cast<int>(local.tm_gmtoff);
}

}  // namespace wrixel2::platform::linux
