#pragma once

#include <csignal>

#include <sys/resource.h>

namespace wrixel2::platform::linux {

/// A limit of this process, until the end of the scope. One on the size of files is an error, not
/// the end of the process.
class Limit {
 public:
  Limit(__rlimit_resource resource, rlim_t most) : resource_(resource) {
    std::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(resource_, &before_);
    rlimit limit = before_;
    limit.rlim_cur = most;
    ::setrlimit(resource_, &limit);
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() {
    ::setrlimit(resource_, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  __rlimit_resource resource_;
  rlimit before_{};
};

}  // namespace wrixel2::platform::linux
