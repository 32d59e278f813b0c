/// wrixel2-bandview: the virtual band on a terminal.

#include <clocale>
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "bandview/LiveView.h"
#include "bandview/OnceView.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/Process.h"
#include "platform/linux/StderrLog.h"

namespace {

using namespace wrixel2;

constexpr int kCannotStart = 1;
constexpr int kBadUsage = 2;

int fail(const std::string& message) {
  std::fprintf(stderr, "wrixel2-bandview: %s\n", message.c_str());
  return kCannotStart;
}

template <typename View, typename... Context>
int run(platform::linux::LinuxRunLoop& loop, Context&... context) {
  const platform::linux::LinuxClock clock;
  platform::ErrorOrNone failure;
  int status = kCannotStart;
  {
    View view(loop, clock, context...);
    failure = view.start();
    if (!failure) {
      status = loop.run();
    }
  }
  // Only now: the view gives the terminal back first.
  return failure ? fail(failure->localizedDescription) : status;
}

}  // namespace

int main(int argc, char** argv) {
  platform::linux::beginProcess("wrixel2-bandview");
  bool once = false;
  CLI::App app(
      "Draws what the virtual band shows and does, serves desktop notifications on its bus, and "
      "lets "
      "keys act as apps, the phone and the wearer do.",
      "wrixel2-bandview");
  app.set_version_flag("--version", "wrixel2-bandview " WRIXEL2_VERSION);
  app.add_flag("--once", once,
               "follow one notification to the band, print when each stage came, and end");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "wrixel2-bandview: %s (try --help)\n", error.what());
    return kBadUsage;
  }

  // Texts of notifications are UTF-8 whatever the user's locale is.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    std::setlocale(LC_CTYPE, "");
  }
  platform::linux::StderrLog log("wrixel2-bandview", false);
  platform::linux::LocalTimeZone zone;
  platform::linux::LinuxRunLoop loop(log, zone);
  loop.onTerminationSignal([&loop] { loop.stop(0); });
  auto bus = platform::linux::BusConnection::openSession(loop);
  if (!bus) {
    return fail(bus.error().localizedDescription);
  }
  bool isBusLost = false;
  (*bus)->onDisconnected([&loop, &isBusLost] {
    isBusLost = true;
    loop.stop(kCannotStart);
  });
  const int status =
      once ? run<bandview::OnceView>(loop, **bus) : run<bandview::LiveView>(loop, **bus, log);
  return isBusLost ? fail("the session bus is gone") : status;
}
