#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace wrixel2::bench {

/// What a process has of memory, in kB (proc(5), smaps_rollup).
struct MemoryFigures {
  std::int64_t resident = 0;
  /// Each page divided by the number of processes that have it.
  std::int64_t proportional = 0;
  /// Pages that no other process has: its own data, and what of files only it has mapped.
  std::int64_t unshared = 0;
  /// Pages that it has written to: what it costs for certain, whoever else runs.
  std::int64_t written = 0;
};

/// A program under measurement. It writes to nowhere, and is killed with this object.
class Process {
 public:
  using Environment = std::map<std::string, std::string>;

  /// The program's path and its arguments; the environment replaces our own. Ends us, with a line
  /// on standard error, when there is no such program.
  Process(std::vector<std::string> arguments, const Environment& environment);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  pid_t id() const { return id_; }
  void signal(int number) const;
  bool isRunning();

  MemoryFigures memory() const;
  std::chrono::nanoseconds processorTime() const;
  /// How often it has gone to sleep, and so been woken.
  std::int64_t voluntarySwitches() const;
  std::int64_t threads() const;
  /// Shared libraries that are mapped, the loader included.
  std::int64_t libraries() const;

 private:
  std::int64_t statusEntry(const std::string& name) const;

  pid_t id_ = -1;
};

}  // namespace wrixel2::bench
