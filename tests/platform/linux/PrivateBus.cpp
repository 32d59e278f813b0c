#include "tests/platform/linux/PrivateBus.h"

#include <array>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace wrixel2::platform::linux {

PrivateBus::PrivateBus() { start(); }

void PrivateBus::start() {
  address_.clear();
  const std::string configuration = directory_.write("bus.conf", R"(
      <!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
        "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
      <busconfig>
        <type>session</type>
        <listen>unix:path=)" + directory_.path("socket") + R"(</listen>
        <auth>EXTERNAL</auth>
        <policy context="default">
          <allow send_destination="*" eavesdrop="true"/>
          <allow eavesdrop="true"/>
          <allow own="*"/>
        </policy>
        <limit name="max_message_size">1000000000</limit>
        <limit name="max_incoming_bytes">1000000000</limit>
        <limit name="max_outgoing_bytes">1000000000</limit>
      </busconfig>)");
  std::array<int, 2> output{};
  if (::pipe(output.data()) != 0) {
    return;
  }
  std::string file = "--config-file=" + configuration;
  std::array<char*, 5> arguments = {const_cast<char*>("dbus-daemon"), file.data(),
                                    const_cast<char*>("--nofork"),
                                    const_cast<char*>("--print-address=1"), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclose(&actions, output[0]);
  posix_spawn_file_actions_addclose(&actions, output[1]);
  // A loop that handled SIGTERM in an earlier test of this process has left it blocked; a bus that
  // inherited that could not be stopped.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  if (::posix_spawnp(&process_, "dbus-daemon", &actions, &attributes, arguments.data(), environ) !=
      0) {
    process_ = -1;
  }
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  ::close(output[1]);
  char character = 0;
  while (::read(output[0], &character, 1) == 1 && character != '\n') {
    address_ += character;
  }
  ::close(output[0]);
}

void PrivateBus::stop(int how) {
  if (process_ > 0) {
    ::kill(process_, how);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }
}

}  // namespace wrixel2::platform::linux
