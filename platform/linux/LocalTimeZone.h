#pragma once

#include <string>

#include "platform/Date.h"

namespace wrixel2::platform::linux {

/// The zone of the TZ variable or, without it, of the file that the machine's zone is set with.
///
/// The C library keeps what it read of that file: after a change of the file reload() is needed. A
/// LinuxRunLoop that knows the zone watches the file and does so.
class LocalTimeZone final : public TimeZone {
 public:
  static constexpr const char* kLocaltimePath = "/etc/localtime";

  /// Another path than the machine's own takes the place of TZ in the environment.
  explicit LocalTimeZone(std::string localtimePath = kLocaltimePath);

  int secondsFromGMT(Date date) const override;

  const std::string& localtimePath() const { return localtimePath_; }
  /// False where TZ names the zone, so that the file has no say.
  bool followsLocaltimeFile() const { return followsFile_; }
  void reload();

 private:
  std::string localtimePath_;
  bool followsFile_;
};

}  // namespace wrixel2::platform::linux
