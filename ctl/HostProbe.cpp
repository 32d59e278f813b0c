#include "ctl/HostProbe.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>
#include <sys/timerfd.h>
#include <time.h>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::ctl {

namespace {

using platform::linux::BusConnection;

constexpr auto kAnswerTime = std::chrono::seconds(3);
constexpr const char* kBluez = "org.bluez";
constexpr const char* kAdapterInterface = "org.bluez.Adapter1";
/// CAP_WAKE_ALARM of linux/capability.h, by its bit in /proc/PID/status.
constexpr unsigned kWakeAlarmBit = 35;

std::string firstLine(const std::filesystem::path& path) {
  std::string line;
  std::ifstream file(path);
  std::getline(file, line);
  return line;
}

std::vector<RadioSwitch> bluetoothSwitches() {
  const std::filesystem::path folder("/sys/class/rfkill");
  std::vector<RadioSwitch> switches;
  const auto names = platform::linux::LinuxFileManager().contentsOfDirectoryAtPath(folder);
  for (const std::string& name : names ? *names : std::vector<std::string>()) {
    if (firstLine(folder / name / "type") == "bluetooth") {
      switches.push_back({firstLine(folder / name / "name"),
                          firstLine(folder / name / "soft") == "1",
                          firstLine(folder / name / "hard") == "1"});
    }
  }
  return switches;
}

/// A program without the right to it is told so; a kernel without such a clock does not know it.
bool hasWakeClock() {
  const platform::linux::FileDescriptor timer(
      ::timerfd_create(CLOCK_BOOTTIME_ALARM, TFD_CLOEXEC | TFD_NONBLOCK));
  return timer || errno == EPERM;
}

std::optional<bool> mayWake(long process) {
  std::ifstream file(fmt::format("/proc/{}/status", process));
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("CapEff:")) {
      return ((std::strtoull(line.c_str() + 7, nullptr, 16) >> kWakeAlarmBit) & 1U) != 0;
    }
  }
  return std::nullopt;
}

/// The only value of a call's answer.
platform::Result<platform::Value> ask(const BusConnection& bus,
                                      const platform::linux::BusAddress& address,
                                      std::string_view member, std::string_view signature = {},
                                      const platform::Array& arguments = {}) {
  auto call = bus.newMethodCall(address, member, signature, arguments);
  if (!call) {
    return call.error();
  }
  call->setAutoStart(false);
  const auto reply = bus.call(*call, kAnswerTime);
  if (!reply) {
    return reply.error();
  }
  auto values = reply->arguments();
  if (!values || values->empty()) {
    return platform::Error{EBADMSG, "the answer is empty"};
  }
  return values->front();
}

void addAdapters(const platform::Dictionary& objects, std::vector<BluetoothAdapter>& adapters) {
  for (const auto& [path, interfaces] : objects) {
    const auto* dictionary = interfaces.dictionary();
    const auto* adapter =
        dictionary != nullptr ? platform::find(*dictionary, kAdapterInterface) : nullptr;
    if (adapter != nullptr && adapter->dictionary() != nullptr) {
      adapters.push_back({path.substr(path.rfind('/') + 1),
                          platform::boolForKey(*adapter->dictionary(), "Powered")});
    }
  }
}

}  // namespace

HostFacts HostProbe::facts() const {
  HostFacts facts;
  facts.radioSwitches = bluetoothSwitches();
  facts.hasWakeClock = hasWakeClock();
  askSystemBus(facts);
  askSessionBus(facts);
  return facts;
}

void HostProbe::askSystemBus(HostFacts& facts) const {
  const auto bus = BusConnection::openSystem(loop_);
  if (!bus) {
    facts.systemBusProblem = bus.error().localizedDescription;
    return;
  }
  const auto owned = (*bus)->nameHasOwner(kBluez);
  facts.bluetoothServiceRuns = owned && *owned;
  if (!facts.bluetoothServiceRuns) {
    return;
  }
  const auto objects =
      ask(**bus, {kBluez, "/", "org.freedesktop.DBus.ObjectManager"}, "GetManagedObjects");
  if (!objects) {
    facts.bluetoothProblem = objects.error().localizedDescription;
  } else if (const auto* dictionary = objects->dictionary()) {
    addAdapters(*dictionary, facts.adapters);
  }
}

void HostProbe::askSessionBus(HostFacts& facts) const {
  const auto bus = BusConnection::openSession(loop_);
  if (!bus) {
    return;
  }
  const auto process =
      ask(**bus, {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"},
          "GetConnectionUnixProcessID", "s", {"org.corvale.wrixel2dIpc"});
  if (process) {
    facts.daemonMayWake = mayWake(static_cast<long>(process->longValue()));
  }
  constexpr const char* kManager = "org.freedesktop.systemd1";
  const auto managed = (*bus)->nameHasOwner(kManager);
  if (!managed || !*managed) {
    return;
  }
  facts.units.emplace();
  for (const char* name : {"wrixel2d.service", "wrixel2-companion.service"}) {
    const auto state =
        ask(**bus, {kManager, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager"},
            "GetUnitFileState", "s", {name});
    facts.units->push_back(
        {name, state && state->text() != nullptr ? *state->text() : std::string()});
  }
}

}  // namespace wrixel2::ctl
