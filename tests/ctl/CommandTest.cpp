#include <functional>
#include <string>
#include <vector>

#include "ctl/EventText.h"
#include "ctl/Json.h"
#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using namespace std::chrono_literals;
using platform::Dictionary;
using Words = std::vector<std::string>;

constexpr const char* kMeasure = "org.corvale.wrixel2prefs.preferencechanged/measure";

TEST_F(CtlTest, StatusTellsHowEverythingIsAndWhatIsWrong) {
  EXPECT_EQ(run({"status"}), ExitStatus::done);
  EXPECT_EQ(console.output,
            "Daemon            runs\n"
            "Link              connected, band c8:0f:10:aa:bb:0c\n"
            "Ready             yes\n"
            "Pairing key       accepted\n"
            "Locked to         no band\n"
            "Battery           80 %\n"
            "Steps             4321\n"
            "Next measurement  11:30\n"
            "Next step check   not planned\n"
            "Companion         runs\n"
            "Do Not Disturb    off\n"
            "Phone             locked\n");

  world.changeStatus({{"State", "off"},
                      {"Battery", 0},
                      {"Steps", 0},
                      {"Authentication", "refused"},
                      {"NextStepCheck", kNow + 86400},
                      {"Problem", "bluetoothd does not run"}});
  world.companion->insert_or_assign("SettingsProblem", "settings.toml:3: mode is a text");
  EXPECT_EQ(run({"status"}), ExitStatus::done);
  for (const char* line : {"Link              the radio is off", "Battery           unknown",
                           "Steps             unknown", "Next step check   2026-11-24 11:00",
                           "Wrong             bluetoothd does not run\n",
                           "                  the band refuses the pairing key",
                           "the settings are not used: settings.toml:3: mode is a text"}) {
    EXPECT_NE(console.output.find(line), std::string::npos) << line << "\n" << console.output;
  }

  world.daemon.reset();
  world.companion.reset();
  EXPECT_EQ(run({"--json", "status"}), ExitStatus::notRunning);
  EXPECT_EQ(console.output,
            "{\n  \"companion\": {\n    \"running\": false\n  },\n  \"daemon\": {\n    "
            "\"running\": false\n  },\n  \"problems\": [\n    \"the daemon does not run\",\n    "
            "\"the companion does not run: no settings, no notifications, no pairing key\"\n  "
            "]\n}\n");
  world.hasSession = false;
  EXPECT_EQ(run({"status"}), ExitStatus::notRunning);
  EXPECT_EQ(console.errors, "there is no session bus\n");
}

TEST_F(CtlTest, WrongUsageSaysSoAndHelpIsNoFailure) {
  const struct {
    Words words;
    ExitStatus status;
    std::string part;
  } kCases[] = {
      {{}, ExitStatus::badUsage, "subcommand is required"},
      {{"stauts"}, ExitStatus::badUsage, "did you mean status?"},
      {{"--json", "fly"}, ExitStatus::badUsage, "no command fly; --help"},
      {{"settings"}, ExitStatus::badUsage, "subcommand is required"},
      {{"notify"}, ExitStatus::badUsage, "title is required"},
      {{"heart-rate", "--csv", "--plot"}, ExitStatus::badUsage, "excludes"},
      {{"heart-rate", "--csv", "--json"}, ExitStatus::badUsage, "excludes"},
      {{"apps", "test", "*"}, ExitStatus::badUsage, "every other app"},
      {{"apps", "set", "", "--icon", "1"}, ExitStatus::badUsage, "identifier"},
      {{"heart-rate", "--since", "soon"}, ExitStatus::badUsage, "\"soon\" is no time"},
      {{"heart-rate", "--since", "1h", "--until", "2h"}, ExitStatus::badUsage, "before --until"},
      {{"--help"}, ExitStatus::done, "Exit status: 0 done"},
      {{"apps", "set", "--help"}, ExitStatus::done, "--icon N|NAME"},
      {{"--version"}, ExitStatus::done, "wrixel2ctl "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.part);
    EXPECT_EQ(run(c.words), c.status);
    const std::string& text = c.status == ExitStatus::done ? console.output : console.errors;
    EXPECT_NE(text.find(c.part), std::string::npos) << text;
  }
}

TEST_F(CtlTest, SettingsAreShownChangedAndTakenBack) {
  writeSettings("timeout = 60 # s\n[apps.\"org.example.Chat\"]\nicon = 9\n");
  EXPECT_EQ(run({"settings", "list"}), ExitStatus::done);
  for (const char* line :
       {"\ntimeout                     60          15          line 1   seconds of quiet\n",
        "\nenabled                     true        true        default  ",
        "\napps.org.example.Chat.icon  9           0           line 3   "}) {
    EXPECT_NE(console.output.find(line), std::string::npos) << line << console.output;
  }
  EXPECT_EQ(run({"settings", "set", "timeout", "30"}), ExitStatus::done);
  EXPECT_EQ(run({"settings", "set", "apps.Mail.preview", "on"}), ExitStatus::done);
  EXPECT_EQ(run({"settings", "set", "button.once", "notify-send", "A band's"}), ExitStatus::done);
  EXPECT_EQ(settingsText(),
            "timeout = 30 # s\n[apps.\"org.example.Chat\"]\nicon = 9\n\n[apps.Mail]\npreview = "
            "true\n\n[button]\nonce = [\"notify-send\", \"A band's\"]\n");
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(run({"settings", "get", "timeout"}), ExitStatus::done);
  EXPECT_EQ(console.output, "30\n");
  EXPECT_EQ(run({"settings", "unset", "timeout"}), ExitStatus::done);
  EXPECT_EQ(run({"settings", "get", "timeout", "--json"}), ExitStatus::done);
  EXPECT_EQ(console.output, "15\n");

  EXPECT_EQ(run({"settings", "unset", "timeout"}), ExitStatus::failed);
  EXPECT_EQ(run({"settings", "get", "timout"}), ExitStatus::badUsage);
  EXPECT_EQ(console.errors, "there is no setting timout; did you mean timeout?\n");
  EXPECT_EQ(run({"settings", "set", "mode", "2"}), ExitStatus::badUsage);
  world.companion.reset();
  EXPECT_EQ(run({"settings", "set", "mode", "1"}), ExitStatus::done);
  EXPECT_NE(console.errors.find("takes effect once it is started"), std::string::npos);

  writeSettings("mode = 7x\n");
  EXPECT_EQ(run({"settings", "set", "mode", "1"}), ExitStatus::failed);
  EXPECT_NE(console.errors.find("settings.toml:1: "), std::string::npos) << console.errors;
  EXPECT_EQ(settingsText(), "mode = 7x\n");
  EXPECT_EQ(run({"settings", "list", "--names"}), ExitStatus::done) << "completion goes on";
}

TEST_F(CtlTest, AppsAreListedSetAndTried) {
  writeSettings("[apps.\"*\"]\nicon = 8\n");
  EXPECT_EQ(run({"apps", "set", "Mail", "--icon", "call", "--pattern", "4", "--preview", "on"}),
            ExitStatus::done);
  EXPECT_EQ(settingsText(),
            "[apps.\"*\"]\nicon = 8\n\n[apps.Mail]\nicon = 29\npattern = 4\npreview = true\n");
  EXPECT_EQ(run({"apps", "list"}), ExitStatus::done);
  EXPECT_EQ(
      console.output,
      "APP               NAME             SEEN  LAST   ICON     REPEAT  PATTERN  TEXT  FROM\n"
      "Mail                               0     -      29 call  0       4        yes   its table\n"
      "org.example.Chat  Chat [31m        3     10:59  8        0       0        no    other apps\n"
      "*                 every other app  0     -      8        0       0        no    its "
      "table\n");
  EXPECT_EQ(run({"apps", "test", "Mail"}), ExitStatus::done);
  EXPECT_EQ(world.sent, Words{"appChanged {\"appInfo\":\"Mail\"}"});

  for (const Words& words : std::vector<Words>{{"apps", "set", "Mail"},
                                               {"apps", "set", "Mail", "--icon", "cat"},
                                               {"apps", "set", "Mail", "--pattern", "9"}}) {
    EXPECT_EQ(run(words), ExitStatus::badUsage) << words.back();
  }
  EXPECT_EQ(run({"apps", "test", "Other"}), ExitStatus::failed);
  EXPECT_EQ(world.sent, Words{});
  EXPECT_NE(console.errors.find("has never notified"), std::string::npos);
}

TEST_F(CtlTest, MessagesReachTheDaemonOrItIsSaidThatThereIsNone) {
  writeSettings("[apps.Chat]\nicon = 9\n");
  EXPECT_EQ(run({"notify", "Anna", "Tea?", "--app", "Chat"}), ExitStatus::done);
  EXPECT_EQ(world.sent,
            Words{R"(bulletinRequest {"message":"Tea?","sectionID":"Chat","title":"Anna"})"});
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(run({"notify", "Anna"}), ExitStatus::done);
  EXPECT_NE(console.errors.find("wrixel2ctl has no icon"), std::string::npos) << console.errors;
  EXPECT_EQ(run({"stop"}), ExitStatus::done);
  EXPECT_EQ(world.sent, Words{"stopVibration"});

  world.daemon.reset();
  for (const Words& words : std::vector<Words>{{"notify", "Anna"},
                                               {"stop"},
                                               {"measure"},
                                               {"steps"},
                                               {"lock"},
                                               {"unlock"},
                                               {"clock", "sync"},
                                               {"stopwatch", "start"},
                                               {"apps", "test", "Chat"}}) {
    EXPECT_EQ(run(words), ExitStatus::notRunning) << words.front();
    EXPECT_EQ(world.sent, Words{});
    EXPECT_NE(console.errors.find("the daemon does not run"), std::string::npos);
  }
}

/// What a command waits for, and what it makes of that.
struct WaitCase {
  std::string name;
  Words words;
  /// Upon the command's first posting.
  std::function<void(FakeWorld&)> then;
  ExitStatus status;
  std::string output;
  std::string inErrors;
};

class WaitTest : public CtlTest, public testing::WithParamInterface<WaitCase> {};

TEST_P(WaitTest, EndsByWhatHappensOrByItsTime) {
  const WaitCase& c = GetParam();
  bool isFirst = true;
  world.onSent = [&](const std::string&) {
    if (isFirst) {
      c.then(world);
    }
    isFirst = false;
  };
  EXPECT_EQ(run(c.words), c.status);
  EXPECT_EQ(console.output, c.output);
  EXPECT_NE(console.errors.find(c.inErrors), std::string::npos) << console.errors;
  EXPECT_EQ(console.errors.empty(), c.inErrors.empty());
}

void heartRateAfter(FakeWorld& world, platform::TimeInterval delay, int rate) {
  world.after(delay, [&world, rate] {
    world.postDistributed("org.corvale.wrixel2.other", {{"heartRate", 1}});
    world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", rate}});
  });
}

void daemonEndsAfter(FakeWorld& world, platform::TimeInterval delay) {
  world.after(delay, [&world] { world.events.peerChanged(Peer::daemon, false); });
}

INSTANTIATE_TEST_SUITE_P(
    Commands, WaitTest,
    testing::Values(
        WaitCase{"heartRate",
                 {"measure"},
                 [](FakeWorld& w) { heartRateAfter(w, 89s, 72); },
                 ExitStatus::done,
                 "72 bpm\n",
                 ""},
        WaitCase{"heartRateForPrograms",
                 {"measure", "--json"},
                 [](FakeWorld& w) { heartRateAfter(w, 1s, 72); },
                 ExitStatus::done,
                 "{\"heartRate\":72}\n",
                 ""},
        WaitCase{"heartRateAtTheSecondTry",
                 {"measure"},
                 [](FakeWorld& w) {
                   heartRateAfter(w, 20s, 0);
                   heartRateAfter(w, 60s, 64);
                 },
                 ExitStatus::done,
                 "64 bpm\n",
                 ""},
        WaitCase{"noReading",
                 {"measure"},
                 [](FakeWorld& w) {
                   heartRateAfter(w, 20s, 0);
                   heartRateAfter(w, 40s, 0);
                 },
                 ExitStatus::timedOut,
                 "",
                 "could not read the heart rate"},
        WaitCase{"bandTooLate",
                 {"measure"},
                 [](FakeWorld& w) { heartRateAfter(w, 91s, 72); },
                 ExitStatus::timedOut,
                 "",
                 "is it near and worn?"},
        WaitCase{"daemonEnds",
                 {"measure"},
                 [](FakeWorld& w) { daemonEndsAfter(w, 5s); },
                 ExitStatus::notRunning,
                 "",
                 "the daemon has ended"},
        WaitCase{"steps",
                 {"steps"},
                 [](FakeWorld& w) {
                   w.after(1ms, [&w] {
                     w.postDistributed("org.corvale.wrixel2.capabilities",
                                       {{"currentSteps", "4321 "},
                                        {"currentDistance", "2500m "},
                                        {"currentCalories", ""},
                                        {"batteryStatus", "63% "}});
                   });
                 },
                 ExitStatus::done,
                 "Steps     4321\nDistance  2500 m\nCalories  unknown\nBattery   63 %\n",
                 ""},
        WaitCase{"stepsOfNoBand",
                 {"steps"},
                 [](FakeWorld& w) { w.changeStatus({{"Problem", "Switched off"}}); },
                 ExitStatus::timedOut,
                 "",
                 "does the companion run? (the daemon says: Switched off)"},
        WaitCase{"lock",
                 {"lock"},
                 [](FakeWorld& w) {
                   w.after(10ms, [&w] { w.changeStatus({{"LockedTo", "c8:0f:10:aa:bb:0c"}}); });
                 },
                 ExitStatus::done,
                 "Locked to c8:0f:10:aa:bb:0c.\n",
                 ""},
        WaitCase{"lockForPrograms",
                 {"lock", "--json"},
                 [](FakeWorld& w) {
                   w.after(10ms, [&w] { w.changeStatus({{"LockedTo", "c8:0f:10:aa:bb:0c"}}); });
                 },
                 ExitStatus::done,
                 "{\"lockedTo\":\"c8:0f:10:aa:bb:0c\"}\n",
                 ""},
        WaitCase{"keyRefusedMeanwhile",
                 {"measure"},
                 [](FakeWorld& w) {
                   w.after(3s, [&w] { w.changeStatus({{"Authentication", "refused"}}); });
                   heartRateAfter(w, 4s, 72);
                 },
                 ExitStatus::failed,
                 "",
                 "refuses the pairing key"},
        WaitCase{"unlockOfWhatIsNotLocked",
                 {"unlock"},
                 [](FakeWorld&) {},
                 ExitStatus::done,
                 "Not locked to any band.\n",
                 ""},
        WaitCase{"lockNotConfirmed",
                 {"lock"},
                 [](FakeWorld&) {},
                 ExitStatus::timedOut,
                 "",
                 "has not answered"},
        WaitCase{"clockOfAReadyBand",
                 {"clock", "sync"},
                 [](FakeWorld&) {},
                 ExitStatus::done,
                 "The time is written to the band.\n",
                 ""}),
    [](const auto& testCase) { return testCase.param.name; });

TEST_F(CtlTest, AWatchedWaitShowsItsProgressAfterASecond) {
  console.isWatched = true;
  world.onSent = [this](const std::string&) { heartRateAfter(world, 2500ms, 70); };
  EXPECT_EQ(run({"measure"}), ExitStatus::done);
  EXPECT_EQ(console.progress,
            (Words{"Measuring (1 of at most 90 s)", "Measuring (2 of at most 90 s)"}));
  console.progress.clear();
  world.onSent = [this](const std::string&) { heartRateAfter(world, 900ms, 70); };
  EXPECT_EQ(run({"measure"}), ExitStatus::done);
  EXPECT_EQ(console.progress, Words{});
}

TEST_F(CtlTest, LockAndClockWaitForABand) {
  world.daemon->insert_or_assign("Initialized", false);
  world.onSent = [this](const std::string&) {
    world.after(59s, [this] { world.changeStatus({{"Initialized", true}}); });
  };
  EXPECT_EQ(run({"clock", "sync"}), ExitStatus::done);
  EXPECT_EQ(world.sent, Words{"org.corvale.wrixel2.syncClock"});
  world.daemon->insert_or_assign("Initialized", false);
  world.onSent = [](const std::string&) {};
  EXPECT_EQ(run({"clock", "sync"}), ExitStatus::timedOut);
  world.daemon->insert_or_assign("Band", "");
  EXPECT_EQ(run({"lock"}), ExitStatus::timedOut);
  EXPECT_EQ(world.sent, Words{});
  // Where the daemon knows better, nothing is waited for.
  world.daemon->insert_or_assign("Problem", "Switched off");
  for (const Words& words : std::vector<Words>{{"measure"}, {"clock", "sync"}}) {
    EXPECT_EQ(run(words), ExitStatus::timedOut);
    EXPECT_EQ(world.sent, Words{});
    EXPECT_EQ(console.errors, "the band cannot be reached: Switched off\n");
  }
}

TEST_F(CtlTest, NothingIsAskedOfABandThatTakesNoKey) {
  world.daemon->insert_or_assign("Initialized", false);
  const auto expectRefusal = [this](const char* verdict, const char* part) {
    world.daemon->insert_or_assign("Authentication", verdict);
    for (const Words& words : std::vector<Words>{{"measure"}, {"clock", "sync"}}) {
      EXPECT_EQ(run(words), ExitStatus::failed);
      EXPECT_EQ(world.sent, Words{});
      EXPECT_NE(console.errors.find(part), std::string::npos) << console.errors;
    }
  };
  expectRefusal("", "there is no pairing key");
  expectRefusal("refused", "there is no pairing key");
  console.input = "0123456789abcdef0123456789abcdef";
  EXPECT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  expectRefusal("refused", "refuses the pairing key");
}

TEST_F(CtlTest, TheStopwatchIsASetting) {
  // The companion posts once it has read the file, which is now.
  world.after(1s, [this] {
    world.events.posted("org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged");
  });
  EXPECT_EQ(run({"stopwatch", "start"}), ExitStatus::done);
  EXPECT_EQ(settingsText(), "stopwatchSwitch = true\n");
  EXPECT_EQ(run({"stopwatch", "start"}), ExitStatus::failed);
  EXPECT_EQ(console.errors, "the stopwatch runs already\n");
  EXPECT_EQ(run({"clock", "sync"}), ExitStatus::failed);
  EXPECT_EQ(world.sent, Words{}) << "the stopwatch's clock is set";

  world.after(1s, [this] {
    world.postDistributed("org.corvale.wrixel2.stopwatch", {{"timeDifference", "00:01:07"}});
  });
  EXPECT_EQ(run({"stopwatch", "stop"}), ExitStatus::done);
  EXPECT_EQ(console.output, "00:01:07\n");
  EXPECT_EQ(settingsText(), "stopwatchSwitch = false\n");
  world.companion.reset();
  EXPECT_EQ(run({"stopwatch", "start"}), ExitStatus::notRunning);
  EXPECT_EQ(settingsText(), "stopwatchSwitch = false\n");
}

TEST_F(CtlTest, WatchTellsEachThingInALineOfItsOwn) {
  world.after(1s, [this] {
    world.changeStatus({{"State", "idle"}, {"Battery", 79}, {"NextMeasurement", kNow + 1800}});
    world.events.posted(kMeasure);
    world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", 72}});
    world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", 0}});
    world.postDistributed("org.corvale.wrixel2.steps", {{"steps", 999999}});
    world.postDistributed("x\n\x1b[2J", {{"a", "b "}, {"n", 1}});
    world.events.peerChanged(Peer::companion, false);
  });
  EXPECT_EQ(run({"watch"}), ExitStatus::done);
  EXPECT_EQ(console.output,
            "11:00:00  Battery is now 79\n"
            "11:00:00  NextMeasurement is now 11:30\n"
            "11:00:00  State is now idle\n"
            "11:00:00  posted org.corvale.wrixel2prefs.preferencechanged/measure\n"
            "11:00:00  heart rate 72 bpm\n"
            "11:00:00  heart rate: no reading\n"
            "11:00:00  steps: no reading\n"
            "11:00:00  x  [2J: a b, n 1\n"
            "11:00:00  the companion has ended\n");
  world.after(1s, [this] { world.postDistributed("n", {{"k", true}}); });
  EXPECT_EQ(run({"--json", "watch"}), ExitStatus::done);
  EXPECT_EQ(console.output,
            "{\"event\":\"notification\",\"name\":\"n\",\"time\":\"2026-11-23T11:00:00+01:00\","
            "\"userInfo\":{\"k\":true}}\n");
}

TEST(JsonTest, EveryValueIsValidJson) {
  EXPECT_EQ(jsonText(Dictionary{{"a\"\\", platform::Array{1, -2.5, true, "\x01\xff\u00e9\u0085"}},
                                {"e", platform::Array{}},
                                {"n", 0.0 / 0.0},
                                {"x", platform::Bytes{1, 255}}},
                     JsonLayout::oneLine),
            "{\"a\\\"\\\\\":[1,-2.5,true,\"\\u0001\xEF\xBF\xBD\u00e9\\u0085\"],\"e\":[],\"n\":null,"
            "\"x\":\"01ff\"}");
}

}  // namespace
}  // namespace wrixel2::ctl
