#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ctl/Diagnosis.h"
#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

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

TEST(DiagnosisTest, EachThingIsJudgedByItself) {
  for (const Finding& finding : diagnose(healthy())) {
    EXPECT_EQ(finding.verdict, Verdict::ok) << finding.subject << ": " << finding.finding;
  }
  const struct {
    const char* what;
    std::function<void(Examination&)> spoil;
    Verdict verdict;
    std::string subject;
    std::string part;  ///< of the finding or the remedy
  } kCases[] = {
      {"no session", [](auto& e) { e.sessionBusProblem = "none"; }, Verdict::problem, "session bus",
       "none"},
      {"no daemon", [](auto& e) { e.daemon.reset(); }, Verdict::problem, "daemon", "enable --now"},
      {"no companion", [](auto& e) { e.companion.reset(); }, Verdict::problem, "companion",
       "does not run"},
      {"no system bus", [](auto& e) { e.host.systemBusProblem = "gone"; }, Verdict::problem,
       "system bus", "gone"},
      {"no bluetoothd", [](auto& e) { e.host.bluetoothServiceRuns = false; }, Verdict::problem,
       "Bluetooth service", "install bluez"},
      {"no permission", [](auto& e) { e.host.bluetoothProblem = "denied"; }, Verdict::problem,
       "Bluetooth service", "join the group"},
      {"no adapter", [](auto& e) { e.host.adapters.clear(); }, Verdict::problem, "adapter",
       "no Bluetooth adapter"},
      {"adapter off", [](auto& e) { e.host.adapters = {{"hci0", false}}; }, Verdict::problem,
       "adapter", "hci0 is switched off"},
      {"flight mode", [](auto& e) { e.host.radioSwitches[0].isSoftBlocked = true; },
       Verdict::problem, "radio switch", "rfkill unblock"},
      {"switch", [](auto& e) { e.host.radioSwitches[0].isHardBlocked = true; }, Verdict::problem,
       "radio switch", "switch of the device"},
      {"daemon's own problem",
       [](auto& e) { e.daemon->insert_or_assign("Problem", "no \x1b[2Jradio"); }, Verdict::problem,
       "service", "no  [2Jradio"},
      {"no key", [](auto& e) { e.keyProblem = "none"; }, Verdict::problem, "pairing key",
       "key import"},
      {"refused", [](auto& e) { e.daemon->insert_or_assign("Authentication", "refused"); },
       Verdict::problem, "pairing key", "refuses"},
      {"odd key", [](auto& e) { e.isKeyUsual = false; }, Verdict::warning, "pairing key",
       "32 hexadecimal"},
      {"readable key", [](auto& e) { e.host.keyFileMode = 0640; }, Verdict::warning, "pairing key",
       "mode 0640"},
      {"damaged settings", [](auto& e) { e.settingsProblem = "file:1: x"; }, Verdict::problem,
       "settings", "file:1: x"},
      {"odd settings", [](auto& e) { e.settingsWarning = "file:2: unknown key"; }, Verdict::warning,
       "settings", "file:2: unknown key"},
      {"companion refuses settings",
       [](auto& e) { e.companion->insert_or_assign("SettingsProblem", "f:2: y"); },
       Verdict::problem, "settings", "f:2: y"},
      {"no settings", [](auto& e) { e.hasSettingsFile = false; }, Verdict::warning, "settings",
       "no app has an icon"},
      {"damaged store", [](auto& e) { e.healthStoreProblem = "broken"; }, Verdict::problem,
       "health store", "broken"},
      {"no wake clock", [](auto& e) { e.host.hasWakeClock = false; }, Verdict::warning,
       "wake alarms", "cannot wake"},
      {"no right to wake", [](auto& e) { e.host.daemonMayWake = false; }, Verdict::warning,
       "wake alarms", "setcap"},
      {"no systemd", [](auto& e) { e.host.units.reset(); }, Verdict::warning, "service units",
       "no systemd"},
      {"unit missing", [](auto& e) { (*e.host.units)[0].state = ""; }, Verdict::warning,
       "service units", "wrixel2d.service is not installed"},
      {"unit disabled", [](auto& e) { (*e.host.units)[1].state = "disabled"; }, Verdict::warning,
       "service units", "enable wrixel2-companion.service"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
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
    EXPECT_NE((bad[0].finding + bad[0].remedy).find(c.part), std::string::npos)
        << bad[0].finding << " / " << bad[0].remedy;
  }
}

TEST_F(CtlTest, TheDoctorsStatusSaysWhetherThereIsAProblem) {
  host = healthy().host;
  EXPECT_EQ(run({"doctor"}), ExitStatus::failed);
  EXPECT_NE(console.output.find("problem  pairing key"), std::string::npos) << console.output;
  console.input = "00112233445566778899aabbccddeeff";
  EXPECT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  EXPECT_EQ(run({"doctor"}), ExitStatus::done) << console.output;
  EXPECT_NE(console.output.find("warning  settings"), std::string::npos) << console.output;
  EXPECT_NE(console.output.find("-> wrixel2ctl apps set"), std::string::npos) << console.output;
  world.hasSession = false;
  EXPECT_EQ(run({"doctor", "--json"}), ExitStatus::failed);
  EXPECT_NE(console.output.find("\"verdict\": \"problem\""), std::string::npos);
}

}  // namespace
}  // namespace wrixel2::ctl
