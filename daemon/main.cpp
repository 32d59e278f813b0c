#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "band/VirtualBand.h"
#include "band/VirtualBandObject.h"
#include "daemon/MiFitExtractor.h"
#include "daemon/Wrixel2d.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/simulated/VirtualRadio.h"
#include "protocol/MBBLE/MiBand.h"

namespace {

using namespace wrixel2;

constexpr int kCannotStart = 1;
constexpr int kBadUsage = 2;

struct Options {
  std::string band = "bluez";
  std::string adapter;
  std::string log;
  bool logPrivate = false;
  std::string root;
  std::string systemVersion = "9.0";
};

int fail(int status, std::string_view why) {
  fmt::print(stderr, "wrixel2d: {}\n", why);
  return status;
}

bool isNumber(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string checkAdapter(const std::string& name) {
  const bool isAdapter = name.starts_with("hci") && isNumber(std::string_view(name).substr(3));
  return isAdapter ? "" : fmt::format("'{}' is no adapter name such as hci0", name);
}

std::string checkVersion(const std::string& version) {
  std::string_view rest = version;
  while (true) {
    const auto dot = rest.find('.');
    if (!isNumber(rest.substr(0, dot))) {
      return fmt::format("'{}' is no version such as 9.0", version);
    }
    if (dot == std::string_view::npos) {
      return "";
    }
    rest.remove_prefix(dot + 1);
  }
}

std::string checkRoot(const std::string& directory) {
  return directory.empty() ? "a directory is needed" : "";
}

/// The exit status, where the program is not to go on.
std::optional<int> parse(int argc, char** argv, Options& options) {
  CLI::App app(
      "Keeps a fitness band in service: forwards notifications and calls, measures, reminds",
      "wrixel2d");
  app.set_version_flag("--version", "wrixel2d " WRIXEL2_VERSION);
  app.add_option("--band", options.band, "The real band over BlueZ, or the embedded virtual one")
      ->check(CLI::IsMember({"bluez", "virtual"}))
      ->capture_default_str();
  app.add_option("--adapter", options.adapter,
                 "Bluetooth adapter [the first powered one, else the first]")
      ->check(CLI::Validator(checkAdapter, "hciN"));
  app.add_option("--log", options.log,
                 "Where log lines go [syslog; stderr when that is a terminal]")
      ->check(CLI::IsMember({"syslog", "stderr"}));
  app.add_flag("--log-private", options.logPrivate,
               "Show the pairing key and message texts in the log");
  app.add_option("--root", options.root, "Use the phone's own absolute paths below this directory")
      ->check(CLI::Validator(checkRoot, "DIR"));
  app.add_option("--system-version", options.systemVersion,
                 "The platform version that the daemon sees")
      ->check(CLI::Validator(checkVersion, "VERSION"))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return error.get_exit_code() == 0 ? app.exit(error) : fail(kBadUsage, error.what());
  }
  if (options.log.empty()) {
    options.log = isatty(STDERR_FILENO) != 0 ? "stderr" : "syslog";
  }
  return std::nullopt;
}

platform::linux::LinuxPlatformOptions platformOptions(const Options& options) {
  platform::linux::LinuxPlatformOptions result;
  result.logTarget = options.log == "stderr" ? platform::linux::LogTarget::standardError
                                             : platform::linux::LogTarget::systemLog;
  result.showsPrivate = options.logPrivate;
  if (!options.root.empty()) {
    result.root = std::filesystem::absolute(options.root).lexically_normal().string();
  }
  result.systemVersion = options.systemVersion;
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
    return fail(kCannotStart,
                fmt::format("cannot serve messages, another wrixel2d may be running: {}",
                            wrixel2d.error().localizedDescription));
  }
  if (const auto error = whenServed()) {
    return fail(kCannotStart, error->localizedDescription);
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

int serveRealBand(platform::linux::LinuxPlatform& system, const Options& options) {
  const auto radio = platform::bluez::BluezRadio::overSystemBus(
      system.runLoop(), system.clock(), system.log(),
      options.adapter.empty() ? std::nullopt : std::optional(options.adapter));
  const platform::Platform platform = system.platform(*radio);
  return serve(
      system, platform, [] { return platform::ErrorOrNone(); }, [&radio] { radio->endLinks(); });
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const auto status = parse(argc, argv, options)) {
    return *status;
  }
  const auto system = platform::linux::LinuxPlatform::create(platformOptions(options));
  if (!system) {
    return fail(kCannotStart, system.error().localizedDescription);
  }
  return options.band == "virtual" ? serveVirtualBand(**system) : serveRealBand(**system, options);
}
