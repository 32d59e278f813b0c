/// wrixel2ctl: the owner's command line.

#include <clocale>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "ctl/BusSession.h"
#include "ctl/CommandLine.h"
#include "ctl/HostProbe.h"
#include "ctl/KeyStore.h"
#include "ctl/TerminalConsole.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/Process.h"
#include "platform/linux/StderrLog.h"
#include "settings/OwnerPaths.h"

namespace {

using namespace wrixel2;

std::optional<unsigned> modeOf(const std::string& file) {
  struct stat status{};
  return ::stat(file.c_str(), &status) == 0 ? std::optional<unsigned>(status.st_mode & 0777U)
                                            : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  platform::linux::beginProcess("wrixel2ctl");
  // Who reads the output and goes ends a command as usual, "watch" above all.
  std::signal(SIGPIPE, SIG_DFL);
  std::setlocale(LC_CTYPE, "");
  ctl::TerminalConsole console;
  platform::linux::StderrLog log("wrixel2ctl", false);
  platform::linux::LocalTimeZone zone;
  platform::linux::LinuxRunLoop loop(log, zone);
  const platform::linux::LinuxClock clock;
  platform::linux::LinuxFileManager files;
  platform::linux::LinuxPropertyLists propertyLists(files);
  const auto owner = settings::OwnerPaths::standard();
  const auto paths = platform::linux::LinuxPaths::standard(std::nullopt);
  if (!owner || !paths) {
    console.complain((!owner ? owner.error() : paths.error()).localizedDescription);
    return static_cast<int>(ctl::ExitStatus::failed);
  }
  const auto status = ctl::runCommandLine(
      std::vector<std::string>(argv + 1, argv + argc),
      {console,
       clock,
       zone,
       files,
       propertyLists,
       {owner->settingsFile, owner->miFit, paths->healthDatabase},
       [&loop] { return ctl::BusSession::open(loop); },
       [&] {
         auto facts = ctl::HostProbe(loop).facts();
         facts.keyFileMode = modeOf(ctl::KeyStore(files, propertyLists, owner->miFit).keyFile());
         return facts;
       },
       false});
  if (const auto& error = console.outputError()) {
    console.complain(error->localizedDescription);
    return static_cast<int>(ctl::ExitStatus::failed);
  }
  return static_cast<int>(status);
}
