#include "platform/linux/OutOfMemory.h"

#include <cstdio>
#include <new>

#include <unistd.h>

namespace wrixel2::platform::linux {

namespace {

const char* nameOfProgram = "";

/// An exception could not be told from here: it needs memory, and the frames of the C libraries
/// that called us end it anyhow.
[[noreturn]] void end() {
  // Standard error is not buffered, so this takes no memory.
  std::fputs(nameOfProgram, stderr);
  std::fputs(": out of memory\n", stderr);
  ::_exit(1);
}

}  // namespace

void endWhenOutOfMemory(const char* program) {
  nameOfProgram = program;
  std::set_new_handler(end);
}

}  // namespace wrixel2::platform::linux
