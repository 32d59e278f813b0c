#pragma once

#include <string>

#include <signal.h>
#include <sys/types.h>

#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {

/// A message bus of the test's own, which needs nothing of the system but the program itself.
class PrivateBus {
 public:
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus() { stop(); }

  /// Empty when no bus could be started.
  const std::string& address() const { return address_; }
  /// As when the session ends.
  void stop(int how = SIGTERM);
  /// Again, at the same address.
  void start();

 private:
  TemporaryDirectory directory_;
  std::string address_;
  pid_t process_ = -1;
};

}  // namespace wrixel2::platform::linux
