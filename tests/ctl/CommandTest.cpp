#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ctl/EventText.h"
#include "ctl/Json.h"
#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using enum ExitStatus;
using namespace std::chrono_literals;
using platform::Dictionary;
using Words = std::vector<std::string>;

constexpr const char* kMeasure = "org.corvale.wrixel2prefs.preferencechanged/measure";

TEST_F(CtlTest, StatusTellsHowEverythingIsAndWhatIsWrong) {
  EXPECT_EQ(outputOf("status"),
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
  EXPECT_EQ(run("status"), done);
  for (const char* line : {"Link              the radio is off", "Battery           unknown",
                           "Steps             unknown", "Next step check   2026-11-24 11:00",
                           "Wrong             bluetoothd does not run\n",
                           "                  the band refuses the pairing key",
                           "the settings are not used: settings.toml:3: mode is a text"}) {
    expectPart(console.output, line);
  }

  world.daemon.reset();
  world.companion.reset();
  EXPECT_EQ(run("--json status"), notRunning);
  EXPECT_EQ(console.output,
            "{\n  \"companion\": {\n    \"running\": false\n  },\n  \"daemon\": {\n    "
            "\"running\": false\n  },\n  \"problems\": [\n    \"the daemon does not run\",\n    "
            "\"the companion does not run: no settings, no notifications, no pairing key\"\n  "
            "]\n}\n");
  world.hasSession = false;
  EXPECT_EQ(run("status"), notRunning);
  EXPECT_EQ(console.errors, "there is no session bus\n");
}

TEST_F(CtlTest, WrongUsageSaysSoAndHelpIsNoFailure) {
  const struct {
    const char* words;
    ExitStatus status;
    std::string part;
  } kCases[] = {
      {"", badUsage, "subcommand is required"},
      {"stauts", badUsage, "did you mean status?"},
      {"--json fly", badUsage, "no command fly; --help"},
      {"settings", badUsage, "subcommand is required"},
      {"notify", badUsage, "title is required"},
      {"heart-rate --csv --plot", badUsage, "excludes"},
      {"heart-rate --csv --json", badUsage, "excludes"},
      {"apps test *", badUsage, "every other app"},
      {"apps set  --icon 1", badUsage, "identifier"},
      {"heart-rate --since  --csv", badUsage, "a moment is missing"},
      {"heart-rate --since soon", badUsage, "\"soon\" is no time"},
      {"heart-rate --since 1h --until 2h", badUsage, "before --until"},
      {"--help", done, "Exit status: 0 done"},
      {"apps set --help", done, "--icon N|NAME"},
      {"--version", done, "wrixel2ctl "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.part);
    EXPECT_EQ(run(c.words), c.status);
    const std::string& text = c.status == done ? console.output : console.errors;
    expectPart(text, c.part);
  }
}

TEST_F(CtlTest, SettingsAreShownChangedAndTakenBack) {
  writeSettings("timeout = 60 # s\n[apps.\"org.example.Chat\"]\nicon = 9\n");
  EXPECT_EQ(run("settings list"), done);
  for (const char* line :
       {"\ntimeout                     60          15          line 1   seconds of quiet\n",
        "\nenabled                     true        true        default  ",
        "\napps.org.example.Chat.icon  9           0           line 3   "}) {
    expectPart(console.output, line);
  }
  EXPECT_EQ(run("settings set timeout 30"), done);
  EXPECT_EQ(run("settings set apps.Mail.preview on"), done);
  EXPECT_EQ(run({"settings", "set", "button.once", "notify-send", "A band's"}), done);
  EXPECT_EQ(settingsText(),
            "timeout = 30 # s\n[apps.\"org.example.Chat\"]\nicon = 9\n\n[apps.Mail]\npreview = "
            "true\n\n[button]\nonce = [\"notify-send\", \"A band's\"]\n");
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(outputOf("settings get timeout"), "30\n");
  EXPECT_EQ(run("settings unset timeout"), done);
  EXPECT_EQ(outputOf("settings get timeout --json"), "15\n");
  expectPart(outputOf("settings list --json"), R"("key": "apps.Mail.preview",
    "line": 5,
    "meaning": "show the text",
    "set": true,
    "value": true)");

  EXPECT_EQ(run("settings unset timeout"), failed);
  EXPECT_EQ(run("settings get timout"), badUsage);
  EXPECT_EQ(console.errors, "there is no setting timout; did you mean timeout?\n");
  EXPECT_EQ(run("settings set mode 2"), badUsage);
  world.companion.reset();
  EXPECT_EQ(run("settings set mode 1"), done);
  expectPart(console.errors, "takes effect once it is started");

  writeSettings("mode = 7x\n");
  expectFailure("settings set mode 1", failed, "settings.toml:1: ");
  EXPECT_EQ(settingsText(), "mode = 7x\n");
  EXPECT_EQ(run("settings list --names"), done) << "completion goes on";
}

TEST_F(CtlTest, AppsAreListedSetAndTried) {
  writeSettings("[apps.\"*\"]\nicon = 8\n");
  EXPECT_EQ(run("apps set Mail --icon call --pattern 4 --preview on"), done);
  EXPECT_EQ(settingsText(),
            "[apps.\"*\"]\nicon = 8\n\n[apps.Mail]\nicon = 29\npattern = 4\npreview = true\n");
  expectPart(outputOf("apps list --json"), R"("icon": 29,
    "id": "Mail",)");
  expectPart(outputOf("apps icons"), "29  call ");
  EXPECT_EQ(
      outputOf("apps list"),
      "APP               NAME             SEEN  LAST   ICON     REPEAT  PATTERN  TEXT  FROM\n"
      "Mail                               0     -      29 call  0       4        yes   its table\n"
      "org.example.Chat  Chat [31m        3     10:59  8        0       0        no    other apps\n"
      "*                 every other app  0     -      8        0       0        no    its "
      "table\n");
  EXPECT_EQ(run("apps test Mail"), done);
  EXPECT_EQ(world.sent, Words{"appChanged {\"appInfo\":\"Mail\"}"});

  for (const char* words :
       {"apps set Mail", "apps set Mail --icon cat", "apps set Mail --pattern 9"}) {
    EXPECT_EQ(run(words), badUsage) << words;
  }
  expectFailure("apps test Other", failed, "has never notified");
  EXPECT_EQ(world.sent, Words{});
}

TEST_F(CtlTest, MessagesReachTheDaemonOrItIsSaidThatThereIsNone) {
  writeSettings("[apps.Chat]\nicon = 9\n");
  EXPECT_EQ(run("notify Anna Tea? --app Chat"), done);
  EXPECT_EQ(world.sent,
            Words{R"(bulletinRequest {"message":"Tea?","sectionID":"Chat","title":"Anna"})"});
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(run("notify Anna"), done);
  expectPart(console.errors, "wrixel2ctl has no icon");
  EXPECT_EQ(run("stop"), done);
  EXPECT_EQ(world.sent, Words{"stopVibration"});

  world.daemon.reset();
  for (const char* words : {"notify Anna", "stop", "measure", "steps", "lock", "unlock",
                            "clock sync", "stopwatch start", "apps test Chat"}) {
    expectFailure(words, notRunning, "the daemon does not run");
    EXPECT_EQ(world.sent, Words{});
  }
}

/// What a command waits for, and what it makes of that.
class WaitTest : public CtlTest {
 protected:
  void heartRate(platform::TimeInterval delay, int rate) {
    world.after(delay, [this, rate] {
      world.postDistributed("org.corvale.wrixel2.other", {{"heartRate", 1}});
      world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", rate}});
    });
  }
  void status(platform::TimeInterval delay, const char* name, const char* value) {
    world.after(delay, [=, this] { world.changeStatus({{name, value}}); });
  }
};

TEST_F(WaitTest, EndsByWhatHappensOrByItsTime) {
  const auto twoRates = [this](platform::TimeInterval second, int rate) {
    return [=, this] {
      heartRate(20s, 0);
      heartRate(second, rate);
    };
  };
  const auto isRefused = [this] {
    status(3s, "Authentication", "refused");
    heartRate(4s, 72);
  };
  const auto daemonEnds = [this] {
    world.after(5s, [this] { world.events.peerChanged(Peer::daemon, false); });
  };
  const auto capabilities = [this] {
    world.after(1ms, [this] {
      world.postDistributed("org.corvale.wrixel2.capabilities", {{"currentSteps", "4321 "},
                                                                 {"currentDistance", "2500m "},
                                                                 {"currentCalories", ""},
                                                                 {"batteryStatus", "63% "}});
    });
  };
  const auto isLocked = [this] { status(10ms, "LockedTo", "c8:0f:10:aa:bb:0c"); };
  const auto nothing = [] {};
  const struct {
    const char* words;
    std::function<void()> happens;
    ExitStatus status;
    std::string output;
    std::string inErrors;
  } kCases[] = {
      {"measure", [this] { heartRate(89s, 72); }, done, "72 bpm\n", ""},
      {"measure",
       [&] {
         world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", 222}},
                               Peer::companion);
         heartRate(1s, 72);
       },
       done, "72 bpm\n", ""},
      {"measure --json", [this] { heartRate(1s, 72); }, done, "{\"heartRate\":72}\n", ""},
      {"measure", twoRates(60s, 64), done, "64 bpm\n", ""},
      {"measure", twoRates(40s, 0), timedOut, "", "could not read the heart rate"},
      {"measure", [this] { heartRate(91s, 72); }, timedOut, "", "is it near and worn?"},
      {"measure", daemonEnds, notRunning, "", "the daemon has ended"},
      {"measure", isRefused, failed, "", "refuses the pairing key"},
      {"steps", capabilities, done,
       "Steps     4321\nDistance  2500 m\nCalories  unknown\nBattery   63 %\n", ""},
      {"steps", [this] { status(0s, "Problem", "Switched off"); }, timedOut, "",
       "does the companion run? (the daemon says: Switched off)"},
      {"unlock", nothing, done, "Not locked to any band.\n", ""},
      {"lock", nothing, timedOut, "", "has not answered"},
      {"lock", isLocked, done, "Locked to c8:0f:10:aa:bb:0c.\n", ""},
      {"lock --json", isLocked, done, "{\"lockedTo\":\"c8:0f:10:aa:bb:0c\"}\n", ""},
      {"clock sync", nothing, done, "The time is written to the band.\n", ""},
  };
  const auto daemon = world.daemon;
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.words) + ": " + c.output + c.inErrors);
    world.daemon = daemon;
    world.pending.clear();
    c.happens();
    EXPECT_EQ(run(c.words), c.status);
    EXPECT_EQ(console.output, c.output);
    expectPart(console.errors, c.inErrors);
    EXPECT_EQ(console.errors.empty(), c.inErrors.empty());
  }
}

TEST_F(WaitTest, ShowsItsProgressAfterASecondToWhoWatches) {
  console.isWatched = true;
  heartRate(2500ms, 70);
  EXPECT_EQ(run("measure"), done);
  EXPECT_EQ(console.progress,
            (Words{"Measuring (1 of at most 90 s)", "Measuring (2 of at most 90 s)"}));
  console.progress.clear();
  heartRate(900ms, 70);
  EXPECT_EQ(run("measure"), done);
  EXPECT_EQ(console.progress, Words{});
}

TEST_F(CtlTest, LockAndClockWaitForABand) {
  world.daemon->insert_or_assign("Initialized", false);
  world.onSent = [this](const std::string&) {
    world.after(59s, [this] { world.changeStatus({{"Initialized", true}}); });
  };
  EXPECT_EQ(run("clock sync"), done);
  EXPECT_EQ(world.sent, Words{"org.corvale.wrixel2.syncClock"});
  world.daemon->insert_or_assign("Initialized", false);
  world.onSent = [](const std::string&) {};
  EXPECT_EQ(run("clock sync"), timedOut);
  world.daemon->insert_or_assign("Band", "");
  EXPECT_EQ(run("lock"), timedOut);
  EXPECT_EQ(world.sent, Words{});
  // Where the daemon knows better, nothing is waited for.
  world.daemon->insert_or_assign("Problem", "Switched off");
  for (const char* words : {"measure", "clock sync"}) {
    EXPECT_EQ(run(words), timedOut);
    EXPECT_EQ(world.sent, Words{});
    EXPECT_EQ(console.errors, "the band cannot be reached: Switched off\n");
  }
}

TEST_F(CtlTest, NothingIsAskedOfABandThatTakesNoKey) {
  world.daemon->insert_or_assign("Initialized", false);
  const auto expectRefusal = [this](const char* verdict, const char* part) {
    world.daemon->insert_or_assign("Authentication", verdict);
    for (const char* words : {"measure", "clock sync"}) {
      expectFailure(words, failed, part);
      EXPECT_EQ(world.sent, Words{});
    }
  };
  expectRefusal("", "there is no pairing key");
  expectRefusal("refused", "there is no pairing key");
  console.input = "0123456789abcdef0123456789abcdef";
  EXPECT_EQ(run("key import - --no-check"), done);
  expectRefusal("refused", "refuses the pairing key");
}

TEST_F(CtlTest, TheStopwatchIsASetting) {
  // The companion posts once it has read the file, which is now.
  world.after(1s, [this] {
    world.events.posted("org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged");
  });
  EXPECT_EQ(run("stopwatch start"), done);
  EXPECT_EQ(settingsText(), "stopwatchSwitch = true\n");
  EXPECT_EQ(run("stopwatch start"), failed);
  EXPECT_EQ(console.errors, "the stopwatch runs already\n");
  EXPECT_EQ(run("clock sync"), failed);
  EXPECT_EQ(world.sent, Words{}) << "the stopwatch's clock is set";

  world.after(1s, [this] {
    world.postDistributed("org.corvale.wrixel2.stopwatch", {{"timeDifference", "00:01:07"}});
  });
  EXPECT_EQ(outputOf("stopwatch stop"), "00:01:07\n");
  EXPECT_EQ(settingsText(), "stopwatchSwitch = false\n");
  world.companion.reset();
  EXPECT_EQ(run("stopwatch start"), notRunning);
  EXPECT_EQ(settingsText(), "stopwatchSwitch = false\n");
}

TEST_F(CtlTest, WatchTellsEachThingInALineOfItsOwn) {
  world.after(1s, [this] {
    world.changeStatus({{"State", "idle"}, {"Battery", 79}, {"NextMeasurement", kNow + 1800}});
    world.events.posted(kMeasure);
    world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", 72}});
    world.postDistributed("org.corvale.wrixel2.measure", {{"heartRate", 0}});
    world.postDistributed("org.corvale.wrixel2.steps", {{"steps", 999999}});
    world.postDistributed("x\n\x1b[2J", {{"a",
                                          "\xc2\x9b"
                                          "b\u202e "},
                                         {"n", 1}});
    world.events.peerChanged(Peer::companion, false);
  });
  EXPECT_EQ(outputOf("watch"),
            "11:00:00  Battery is now 79\n"
            "11:00:00  NextMeasurement is now 11:30\n"
            "11:00:00  State is now idle\n"
            "11:00:00  posted org.corvale.wrixel2prefs.preferencechanged/measure\n"
            "11:00:00  heart rate 72 bpm\n"
            "11:00:00  heart rate: no reading\n"
            "11:00:00  steps: no reading\n"
            "11:00:00  x  [2J: a  b, n 1\n"
            "11:00:00  the companion has ended\n");
  world.after(1s, [this] { world.postDistributed("n", {{"k", true}}); });
  EXPECT_EQ(outputOf("--json watch"),
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
