#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <systemd/sd-event.h>
#include <termios.h>

#include "bandview/View.h"
#include "platform/Result.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}

namespace wrixel2::bandview {

/// The terminal at standard input and output, taken over for drawing: another screen, no echo, no
/// cursor. Destroying it gives the terminal back as it was.
class Terminal {
 public:
  struct Events {
    std::function<void()> resized;
    std::function<void(char key)> pressed;
  };

  /// Fails where standard input or output is no terminal. The loop outlives it.
  static platform::Result<std::unique_ptr<Terminal>> takeOver(platform::linux::LinuxRunLoop& loop,
                                                              Events events);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  TerminalSize size() const;
  /// Replaces what is shown, without flicker.
  void show(const std::vector<std::string>& lines) const;

 private:
  struct Unref {
    void operator()(sd_event_source* source) const { sd_event_source_unref(source); }
  };
  using Source = std::unique_ptr<sd_event_source, Unref>;

  Terminal(Events events, const termios& before) : events_(std::move(events)), before_(before) {}

  platform::ErrorOrNone serve(sd_event* event);
  static int onInput(sd_event_source* source, int descriptor, unsigned events, void* userdata);
  static int onResize(sd_event_source* source, const struct signalfd_siginfo* info, void* userdata);

  Events events_;
  termios before_;
  Source input_;
  Source resize_;
};

}  // namespace wrixel2::bandview
