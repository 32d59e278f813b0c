#include "ctl/Diagnosis.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "ctl/TextRows.h"

namespace wrixel2::ctl {

namespace {

std::string propertyOf(const std::optional<platform::Dictionary>& properties,
                       std::string_view name) {
  return properties ? printable(platform::textForKey(*properties, name).value_or("")) : "";
}

/// Collects the findings, a group a function.
class Examiner {
 public:
  explicit Examiner(const Examination& examination) : seen_(examination) {}

  std::vector<Finding> findings;

  void examinePrograms() {
    if (!seen_.sessionBusProblem.empty()) {
      problem("session bus", seen_.sessionBusProblem, "log in to a session with a message bus");
      return;
    }
    ok("session bus", "answers");
    if (seen_.daemon) {
      ok("daemon", "runs");
    } else {
      problem("daemon", "does not run", "systemctl --user enable --now wrixel2d.service");
    }
    if (seen_.companion) {
      ok("companion", "runs");
    } else {
      problem("companion", "does not run",
              "systemctl --user enable --now wrixel2-companion.service");
    }
  }

  void examineRadio() {
    const HostFacts& host = seen_.host;
    if (!host.systemBusProblem.empty()) {
      problem("system bus", host.systemBusProblem, "start the system's message bus");
      return;
    }
    ok("system bus", "answers");
    if (!host.bluetoothServiceRuns) {
      problem("Bluetooth service", "bluetoothd does not run",
              "install bluez; sudo systemctl enable --now bluetooth");
    } else if (!host.bluetoothProblem.empty()) {
      problem("Bluetooth service", "bluetoothd does not answer us: " + host.bluetoothProblem,
              "join the group that may use Bluetooth (bluetooth or netdev), and log in anew");
    } else {
      ok("Bluetooth service", "bluetoothd answers");
      examineAdapters();
    }
    examineSwitches();
    if (const std::string trouble = propertyOf(seen_.daemon, "Problem"); !trouble.empty()) {
      problem("service", trouble, "see the findings above, and the daemon's log");
    }
  }

  void examineKey() {
    if (!seen_.keyProblem.empty()) {
      problem("pairing key", seen_.keyProblem, "wrixel2ctl key import FILE");
      return;
    }
    const std::string authentication = propertyOf(seen_.daemon, "Authentication");
    if (authentication == "refused") {
      problem("pairing key", "the band refuses it",
              "take the key from the maker's app again: wrixel2ctl key import FILE");
    } else if (!seen_.isKeyUsual) {
      warning("pairing key", "is not 32 hexadecimal digits", "compare it with the maker's app's");
    } else {
      ok("pairing key", authentication == "accepted" ? "the band accepts it" : "is there");
    }
    constexpr unsigned kOthers = 077;
    if (seen_.host.keyFileMode.value_or(0) & kOthers) {
      warning("pairing key",
              fmt::format("others may read its file (mode {:04o})", *seen_.host.keyFileMode),
              "import it again, or chmod 600 it");
    }
  }

  void examineFiles() {
    const std::string refused = propertyOf(seen_.companion, "SettingsProblem");
    if (!seen_.settingsProblem.empty() || !refused.empty()) {
      problem("settings", seen_.settingsProblem.empty() ? refused : seen_.settingsProblem,
              "mend the file at that line; until then the last good settings hold");
    } else if (!seen_.hasSettingsFile) {
      warning("settings", "there is no settings file: no app has an icon",
              "wrixel2ctl apps set ID --icon message");
    } else if (!seen_.settingsWarning.empty()) {
      warning("settings", seen_.settingsWarning,
              "mend that line; \"wrixel2ctl settings list\" shows what there is");
    } else {
      ok("settings", "the file holds");
    }
    if (seen_.healthStoreProblem.empty()) {
      ok("health store", "can be read");
    } else {
      problem("health store", seen_.healthStoreProblem,
              "move the file away; a new one is made by the next measurement");
    }
  }

  void examineSystem() {
    const HostFacts& host = seen_.host;
    if (!host.hasWakeClock) {
      warning("wake alarms", "the kernel cannot wake this machine for a timer",
              "measurements and reminders wait while it sleeps");
    } else if (host.daemonMayWake && !*host.daemonMayWake) {
      warning("wake alarms",
              "the daemon may not wake the machine, so its timers wait while it "
              "sleeps",
              "sudo setcap cap_wake_alarm+ep on the wrixel2d program");
    } else {
      ok("wake alarms",
         host.daemonMayWake ? "the daemon may wake the machine" : "the kernel has them");
    }
    if (!host.units) {
      warning("service units", "no systemd manages this session",
              "let the session start wrixel2d and wrixel2-companion");
      return;
    }
    for (const ServiceUnit& unit : *host.units) {
      examineUnit(unit);
    }
  }

 private:
  void ok(std::string subject, std::string finding) {
    findings.push_back({Verdict::ok, std::move(subject), std::move(finding), {}});
  }
  void warning(std::string subject, std::string finding, std::string remedy) {
    findings.push_back(
        {Verdict::warning, std::move(subject), std::move(finding), std::move(remedy)});
  }
  void problem(std::string subject, std::string finding, std::string remedy) {
    findings.push_back(
        {Verdict::problem, std::move(subject), std::move(finding), std::move(remedy)});
  }

  void examineAdapters() {
    const auto& adapters = seen_.host.adapters;
    if (adapters.empty()) {
      problem("adapter", "there is no Bluetooth adapter", "plug one in, or see the kernel's log");
      return;
    }
    const auto powered = std::find_if(adapters.begin(), adapters.end(),
                                      [](const auto& adapter) { return adapter.isPowered; });
    if (powered == adapters.end()) {
      problem("adapter", printable(adapters.front().name) + " is switched off",
              "bluetoothctl power on, or the switch of your shell");
    } else {
      ok("adapter", printable(powered->name) + " is on");
    }
  }

  void examineSwitches() {
    for (const RadioSwitch& radio : seen_.host.radioSwitches) {
      if (radio.isHardBlocked) {
        problem("radio switch", printable(radio.name) + " is blocked by a switch of the device",
                "turn the device's radio switch on");
      } else if (radio.isSoftBlocked) {
        problem("radio switch", printable(radio.name) + " is blocked (flight mode)",
                "rfkill unblock bluetooth");
      }
    }
  }

  void examineUnit(const ServiceUnit& unit) {
    if (unit.state.empty()) {
      warning("service units", unit.name + " is not installed",
              "start the program by hand, or install the unit");
    } else if (unit.state == "enabled" || unit.state == "static" || unit.state == "linked") {
      ok("service units", fmt::format("{} is {}", unit.name, printable(unit.state)));
    } else {
      warning("service units", fmt::format("{} is {}", unit.name, printable(unit.state)),
              "systemctl --user enable " + unit.name);
    }
  }

  const Examination& seen_;
};

}  // namespace

std::vector<Finding> diagnose(const Examination& examination) {
  Examiner examiner(examination);
  examiner.examinePrograms();
  examiner.examineRadio();
  examiner.examineKey();
  examiner.examineFiles();
  examiner.examineSystem();
  return std::move(examiner.findings);
}

}  // namespace wrixel2::ctl
