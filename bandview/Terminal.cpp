#include "bandview/Terminal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandview {

namespace {

// DEC private modes, as every terminal of today knows them.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l\x1b[2J";
constexpr std::string_view kLeave = "\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr char kEscape = '\x1b';
constexpr std::string_view kHome = "\x1b[H";
constexpr std::string_view kClearLine = "\x1b[K";
constexpr std::string_view kClearRest = "\x1b[J";

void writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return;  // The terminal is gone; the end of its input tells.
    }
    text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
}

}  // namespace

platform::Result<std::unique_ptr<Terminal>> Terminal::takeOver(platform::linux::LinuxRunLoop& loop,
                                                               Events events) {
  termios before{};
  if (::isatty(STDOUT_FILENO) == 0 || ::tcgetattr(STDIN_FILENO, &before) != 0) {
    return platform::Error{0, "this is not a terminal; without one there is --once"};
  }
  std::unique_ptr<Terminal> terminal(new Terminal(std::move(events), before));
  termios quiet = before;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
  ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  writeAll(kEnter);
  if (auto error = terminal->serve(loop.event())) {
    return *error;
  }
  return terminal;
}

Terminal::~Terminal() {
  writeAll(kLeave);
  ::tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

platform::ErrorOrNone Terminal::serve(sd_event* event) {
  sd_event_source* source = nullptr;
  int result = sd_event_add_io(event, &source, STDIN_FILENO, EPOLLIN, onInput, this);
  if (result < 0) {
    return platform::errorFromErrno(-result, "cannot read the terminal");
  }
  input_.reset(source);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGWINCH);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  result = sd_event_add_signal(event, &source, SIGWINCH, onResize, this);
  if (result < 0) {
    return platform::errorFromErrno(-result, "cannot notice a change of the terminal's size");
  }
  resize_.reset(source);
  return std::nullopt;
}

int Terminal::onInput(sd_event_source* source, int descriptor, unsigned /*events*/,
                      void* userdata) {
  auto* self = static_cast<Terminal*>(userdata);
  std::array<char, 64> input{};
  const ssize_t count = ::read(descriptor, input.data(), input.size());
  if (count > 0) {
    const std::string_view keys(input.data(), static_cast<std::size_t>(count));
    // What begins with an escape is one special key, whose name holds letters.
    for (const char key : keys.substr(0, keys.find(kEscape))) {
      self->events_.pressed(key);
    }
  } else if (count == 0 || errno != EINTR) {
    sd_event_source_set_enabled(source, SD_EVENT_OFF);
    self->events_.pressed('q');
  }
  return 0;
}

int Terminal::onResize(sd_event_source* /*source*/, const signalfd_siginfo* /*info*/,
                       void* userdata) {
  static_cast<Terminal*>(userdata)->events_.resized();
  return 0;
}

TerminalSize Terminal::size() const {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {size.ws_col, size.ws_row};
}

void Terminal::show(const std::vector<std::string>& lines) const {
  std::string frame(kHome);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    frame += i == 0 ? "" : "\r\n";
    frame += lines[i];
    frame += kClearLine;
  }
  frame += kClearRest;
  writeAll(frame);
}

}  // namespace wrixel2::bandview
