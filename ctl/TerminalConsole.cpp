#include "ctl/TerminalConsole.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "ctl/TextRows.h"

namespace wrixel2::ctl {

namespace {

constexpr int kUsualColumns = 80;
constexpr std::size_t kLongestInput = std::size_t{1} << 20;
constexpr std::string_view kClearLine = "\r\x1b[K";

bool write(std::FILE* file, std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

}  // namespace

void TerminalConsole::print(std::string_view text) {
  setProgress({});
  if (!write(stdout, text) && !outputError_) {
    outputError_ = platform::errorFromErrno(errno, "standard output cannot be written");
  }
}

void TerminalConsole::complain(std::string_view sentence) {
  setProgress({});
  std::string line("wrixel2ctl: ");
  line += printable(sentence);
  write(stderr, line += '\n');
}

bool TerminalConsole::showsProgress() const { return ::isatty(STDERR_FILENO) == 1; }

void TerminalConsole::setProgress(std::string_view line) {
  if (!showsProgress() || (line.empty() && !hasProgress_)) {
    return;
  }
  std::string frame(kClearLine);
  write(stderr, frame += line);
  hasProgress_ = !line.empty();
}

int TerminalConsole::columns() const {
  winsize size{};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : kUsualColumns;
}

bool TerminalConsole::isUtf8() const { return std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0; }

platform::Result<std::string> TerminalConsole::readInput() {
  std::string input;
  std::array<char, 4096> block{};
  while (input.size() <= kLongestInput) {
    const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
    if (count < 0 && errno != EINTR) {
      return platform::errorFromErrno(errno, "standard input cannot be read");
    }
    if (count == 0) {
      return input;
    }
    input.append(block.data(), count < 0 ? 0 : static_cast<std::size_t>(count));
  }
  return platform::Error{EFBIG, "standard input is too long"};
}

}  // namespace wrixel2::ctl
