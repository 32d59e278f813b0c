#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ctl/Diagnosis.h"
#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using enum ExitStatus;
/// A machine and a service with which all is well.
Examination healthy() {
  Examination e;
  e.host.bluetoothServiceRuns = true;
  e.host.adapters = {{"hci0", false}, {"hci1", true}};
  e.host.radioSwitches = {{"hci0", false, false}};
  e.host.hasWakeClock = true;
  e.host.daemonMayWake = true;
  e.host.units = std::vector<ServiceUnit>{{"wrixel2d.service", "enabled"},
                                          {"wrixel2-companion.service", "static"}};
  e.host.keyFileMode = 0600;
  e.daemon = platform::Dictionary{{"Authentication", "accepted"}, {"Problem", ""}};
  e.companion = platform::Dictionary{{"SettingsProblem", ""}};
  return e;
}

TEST_F(CtlTest, TheDoctorJudgesEachThingByItself) {
  for (const Finding& finding : diagnose(healthy())) {
    EXPECT_EQ(finding.verdict, Verdict::ok) << finding.subject << ": " << finding.finding;
  }
  const auto daemonSays = [](const char* name, const char* value) {
    return [=](Examination& e) { e.daemon->insert_or_assign(name, value); };
  };
  constexpr auto kProblem = Verdict::problem;
  constexpr auto kWarning = Verdict::warning;
  const struct {
    std::function<void(Examination&)> spoil;
    Verdict verdict;
    std::string subject;
    std::string part;  ///< of the finding or the remedy
  } kCases[] = {
      {[](auto& e) { e.sessionBusProblem = "none"; }, kProblem, "session bus", "none"},
      {[](auto& e) { e.daemon.reset(); }, kProblem, "daemon", "enable --now"},
      {[](auto& e) { e.companion.reset(); }, kProblem, "companion", "does not run"},
      {[](auto& e) { e.host.systemBusProblem = "gone"; }, kProblem, "system bus", "gone"},
      {[](auto& e) { e.host.bluetoothServiceRuns = false; }, kProblem, "Bluetooth service",
       "install bluez"},
      {[](auto& e) { e.host.bluetoothProblem = "denied"; }, kProblem, "Bluetooth service",
       "join the group"},
      {[](auto& e) { e.host.adapters.clear(); }, kProblem, "adapter", "no Bluetooth adapter"},
      {[](auto& e) { e.host.adapters = {{"hci0", false}}; }, kProblem, "adapter",
       "hci0 is switched off"},
      {[](auto& e) { e.host.radioSwitches[0].isSoftBlocked = true; }, kProblem, "radio switch",
       "rfkill unblock"},
      {[](auto& e) { e.host.radioSwitches[0].isHardBlocked = true; }, kProblem, "radio switch",
       "switch of the device"},
      {daemonSays("Problem", "no \x1b[2Jradio"), kProblem, "service", "no  [2Jradio"},
      {[](auto& e) { e.keyProblem = "none"; }, kProblem, "pairing key", "key import"},
      {daemonSays("Authentication", "refused"), kProblem, "pairing key", "refuses"},
      {[](auto& e) { e.isKeyUsual = false; }, kWarning, "pairing key", "32 hexadecimal"},
      {[](auto& e) { e.host.keyFileMode = 0640; }, kWarning, "pairing key", "mode 0640"},
      {[](auto& e) { e.settingsProblem = "file:1: x"; }, kProblem, "settings", "file:1: x"},
      {[](auto& e) { e.settingsWarning = "file:2: y"; }, kWarning, "settings", "file:2: y"},
      {[](auto& e) { e.companion->insert_or_assign("SettingsProblem", "f:2: y"); }, kProblem,
       "settings", "f:2: y"},
      {[](auto& e) { e.hasSettingsFile = false; }, kWarning, "settings", "no app has an icon"},
      {[](auto& e) { e.healthStoreProblem = "broken"; }, kProblem, "health store", "broken"},
      {[](auto& e) { e.host.hasWakeClock = false; }, kWarning, "wake alarms", "cannot wake"},
      {[](auto& e) { e.host.daemonMayWake = false; }, kWarning, "wake alarms", "setcap"},
      {[](auto& e) { e.host.units.reset(); }, kWarning, "service units", "no systemd"},
      {[](auto& e) { (*e.host.units)[0].state = ""; }, kWarning, "service units",
       "wrixel2d.service is not installed"},
      {[](auto& e) { (*e.host.units)[1].state = "disabled"; }, kWarning, "service units",
       "enable wrixel2-companion.service"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.subject + ": " + c.part);
    Examination examination = healthy();
    c.spoil(examination);
    std::vector<Finding> bad;
    for (Finding& finding : diagnose(examination)) {
      if (finding.verdict != Verdict::ok) {
        bad.push_back(std::move(finding));
      }
    }
    ASSERT_EQ(bad.size(), 1U);
    EXPECT_EQ(bad[0].verdict, c.verdict);
    EXPECT_EQ(bad[0].subject, c.subject);
    expectPart(bad[0].finding + " / " + bad[0].remedy, c.part);
  }
}

TEST_F(CtlTest, TheDoctorsStatusSaysWhetherThereIsAProblem) {
  host = healthy().host;
  EXPECT_EQ(run("doctor"), failed);
  expectPart(console.output, "problem  pairing key");
  console.input = "00112233445566778899aabbccddeeff";
  EXPECT_EQ(run("key import - --no-check"), done);
  EXPECT_EQ(run("doctor"), done) << console.output;
  expectPart(console.output, "warning  settings");
  expectPart(console.output, "-> wrixel2ctl apps set");
  world.hasSession = false;
  EXPECT_EQ(run("doctor --json"), failed);
  expectPart(console.output, "\"verdict\": \"problem\"");
}

}  // namespace
}  // namespace wrixel2::ctl
