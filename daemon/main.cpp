#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "band/VirtualBand.h"
#include "band/VirtualBandObject.h"
#include "daemon/CommandLine.h"
#include "daemon/MiFitExtractor.h"
#include "daemon/Wrixel2d.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/Process.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/simulated/VirtualRadio.h"
#include "protocol/MBBLE/MiBand.h"

namespace {

using namespace wrixel2;

constexpr int kCannotStart = 1;

int fail(std::string_view why) {
  std::fputs(fmt::format("wrixel2d: {}\n", why).c_str(), stderr);
  return kCannotStart;
}

platform::linux::LinuxPlatformOptions platformOptions(const daemon::CommandLine& options) {
  platform::linux::LinuxPlatformOptions result;
  result.logTarget = options.logsToStandardError ? platform::linux::LogTarget::standardError
                                                 : platform::linux::LogTarget::systemLog;
  result.showsPrivate = options.logPrivate;
  result.root = options.root;
  result.systemVersion = options.systemVersion;
  result.publisher = "org.corvale.wrixel2Ipc";
  return result;
}

/// Serves until the process is told to end. Each argument outlives the call: the radio's links are
/// ended by the daemon, and then by endRadio for those that are still being made.
int serve(platform::linux::LinuxPlatform& system, const platform::Platform& platform,
          const std::function<platform::ErrorOrNone()>& whenServed,
          const std::function<void()>& endRadio) {
  daemon::MiFitExtractor keyProvider(platform);
  const auto wrixel2d = daemon::Wrixel2d::sharedManager(platform, [&platform, &keyProvider] {
    return std::make_unique<mbble::MiBand>(platform, keyProvider);
  });
  if (!wrixel2d) {
    return fail(fmt::format("cannot serve messages, another wrixel2d may be running: {}",
                            wrixel2d.error().localizedDescription));
  }
  if (const auto error = whenServed()) {
    return fail(error->localizedDescription);
  }
  system.runLoop().onTerminationSignal([&] {
    (*wrixel2d)->endLinks();
    endRadio();
    system.runLoop().stop(0);
  });
  return system.runLoop().run();
}

int serveVirtualBand(platform::linux::LinuxPlatform& system) {
  platform::simulated::VirtualRadio radio(system.runLoop());
  const platform::Platform platform = system.platform(radio);
  const auto band = std::make_shared<band::VirtualBand>(platform);
  radio.addBand(band);
  std::unique_ptr<band::VirtualBandObject> bandObject;
  const auto exportBand = [&]() -> platform::ErrorOrNone {
    auto made = band::VirtualBandObject::create(*band, platform.objectExporter);
    if (!made) {
      return made.error();
    }
    bandObject = std::move(*made);
    return std::nullopt;
  };
  return serve(system, platform, exportBand, [] {});
}

int serveRealBand(platform::linux::LinuxPlatform& system,
                  const std::optional<std::string>& adapter) {
  const auto radio = platform::bluez::BluezRadio::overSystemBus(system.runLoop(), system.clock(),
                                                                system.log(), adapter);
  const platform::Platform platform = system.platform(*radio);
  return serve(
      system, platform, [] { return platform::ErrorOrNone(); }, [&radio] { radio->endLinks(); });
}

}  // namespace

int main(int argc, char** argv) {
  platform::linux::beginProcess("wrixel2d");
  const auto [commandLine, status] = daemon::parseCommandLine(argc, argv);
  if (status) {
    return *status;
  }
  const auto system = platform::linux::LinuxPlatform::create(platformOptions(commandLine));
  if (!system) {
    return fail(system.error().localizedDescription);
  }
  return commandLine.isVirtualBand ? serveVirtualBand(**system)
                                   : serveRealBand(**system, commandLine.adapter);
}
