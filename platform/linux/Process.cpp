#include "platform/linux/Process.h"

#include <csignal>
#include <cstdio>
#include <new>

#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace wrixel2::platform::linux {

namespace {

const char* nameOfProgram = "";

}  // namespace

void beginProcess(const char* program) {
  nameOfProgram = program;
  // An exception could not be told from there: it needs memory, and the frames of the C libraries
  // that called us end it anyhow.
  std::set_new_handler([] { endProcess("out of memory"); });
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
#ifdef __GLIBC__
  // Its own threshold grows to the largest block that was freed, up to 32 MB. Others have none.
  constexpr int kLargeBlock = 128 * 1024;
  ::mallopt(M_MMAP_THRESHOLD, kLargeBlock);
#endif
}

void endProcess(std::string_view why) {
  // Standard error is not buffered.
  std::fputs(nameOfProgram, stderr);
  std::fputs(": ", stderr);
  std::fwrite(why.data(), 1, why.size(), stderr);
  std::fputc('\n', stderr);
  ::_exit(1);
}

}  // namespace wrixel2::platform::linux
