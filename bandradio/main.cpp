#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "band/VirtualBand.h"
#include "band/VirtualBandObject.h"
#include "bandradio/BandAdapter.h"
#include "bandradio/BluezBandRadio.h"
#include "bandradio/ManagementSocket.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/Process.h"
#include "platform/linux/SdBus.h"
#include "platform/simulated/VirtualRadio.h"

namespace {

using namespace wrixel2;

/// The number in "hci1"; none for any other text.
std::optional<std::uint16_t> numberOfAdapter(const std::string& name) {
  constexpr std::size_t kLongest = 4;
  if (!name.starts_with("hci") || name.size() <= 3 || name.size() > 3 + kLongest ||
      name.find_first_not_of("0123456789", 3) != std::string::npos) {
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(std::stoi(name.substr(3)));
}

int fail(const std::string& why) {
  std::fputs(("wrixel2-band: " + why + "\n").c_str(), stderr);
  return 1;
}

int fail(const platform::Error& error) { return fail(error.localizedDescription); }

int run(const std::string& adapterName, std::uint16_t adapterNumber) {
  platform::linux::LinuxPlatformOptions options;
  options.tag = "wrixel2-band";
  options.logTarget = platform::linux::LogTarget::standardError;
  auto created = platform::linux::LinuxPlatform::create(options);
  if (!created) {
    return fail(created.error());
  }
  platform::linux::LinuxPlatform& machine = **created;
  const auto systemBus = platform::linux::BusConnection::openSystem(machine.runLoop());
  if (!systemBus) {
    return fail(systemBus.error());
  }
  const auto adapter = bandradio::BandAdapter::take(**systemBus, adapterName, band::kBandName);
  if (!adapter) {
    return fail(adapter.error());
  }
  auto management = bandradio::ManagementSocket::open(machine.runLoop(), adapterNumber);
  if (!management) {
    return fail(management.error());
  }

  platform::simulated::VirtualRadio noRadio(machine.runLoop());  // a band is no central
  const platform::Platform platform = machine.platform(noRadio);
  band::VirtualBand band(platform, (*adapter)->address());
  const auto object = band::VirtualBandObject::create(band, platform.objectExporter);
  if (!object) {
    return fail(object.error());
  }
  bandradio::BluezBandRadio radio(band, **systemBus, std::move(*management), (*adapter)->path(),
                                  machine.runLoop(), machine.log());
  if (const auto error = radio.start()) {
    return fail(*error);
  }
  (*systemBus)->onDisconnected([&machine] {
    machine.runLoop().stop(fail("the system bus is gone"));
  });
  machine.runLoop().onTerminationSignal([&machine] { machine.runLoop().stop(0); });
  return machine.runLoop().run();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  platform::linux::beginProcess("wrixel2-band");
  CLI::App app{
      "A virtual band that a Bluetooth adapter puts on the air, to be handled over the session "
      "bus."};
  app.set_version_flag("--version", "wrixel2-band " WRIXEL2_VERSION);
  std::string adapter = "hci0";
  app.add_option("--adapter", adapter, "Adapter that the band uses")
      ->type_name("hciN")
      ->capture_default_str();
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : 2;
  }
  const auto number = numberOfAdapter(adapter);
  if (!number) {
    fail("'" + adapter + "' is not the name of an adapter, like hci1");
    return 2;
  }
  return run(adapter, *number);
}
