#include <csignal>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SessionTest.h"

namespace wrixel2::integration {
namespace {

/// The owner's command line with everything else running.
class CtlSessionTest : public SessionTest {
 protected:
  /// What it printed; the test fails for another exit status.
  std::string ctl(std::vector<std::string> words, int status = 0) {
    words.insert(words.begin(), WRIXEL2CTL_PATH);
    const auto program = start(words);
    waitForExit(*program, status, std::chrono::seconds(100));
    errors_ = program->errors();
    return program->output();
  }

  void waitForStatus(const std::string& property, const platform::Value& value) {
    waitUntil(property, [&] {
      const auto present = bus_->getProperty(kStatus, property);
      return present && *present == value;
    });
  }

  std::string errors_;
};

TEST_F(CtlSessionTest, WithoutThePrograms) {
  EXPECT_EQ(ctl({"status"}, 3).substr(0, 21), "Daemon     does not r");
  ctl({"measure"}, 3);
  EXPECT_NE(errors_.find("the daemon does not run"), std::string::npos) << errors_;
  EXPECT_EQ(ctl({"heart-rate", "--csv"}), "time,unix,bpm\n");
  const std::string command = std::string(WRIXEL2CTL_PATH) + " heart-rate --csv > /dev/full";
  const auto onFullDisk = start({"/bin/sh", "-c", command});
  waitForExit(*onFullDisk, 1);
  EXPECT_NE(onFullDisk->errors().find("No space left"), std::string::npos) << onFullDisk->errors();
  ctl({"settings", "set", "timeout", "7"});
  EXPECT_EQ(ctl({"settings", "get", "timeout"}), "7\n");
  const std::string findings = ctl({"doctor"}, 1);
  for (const char* part :
       {"problem  daemon", "problem  companion", "ok       pairing key", "ok       session bus"}) {
    EXPECT_NE(findings.find(part), std::string::npos) << part << "\n" << findings;
  }
}

TEST_F(CtlSessionTest, TheOwnersDay) {
  writeSettings("# mine\nconnectedMode = 1\n");
  startBoth();
  waitForBand();

  // A change of the file is in force by itself.
  ctl({"apps", "set", "Chat", "--icon", "call", "--preview", "on"});
  EXPECT_EQ(errors_, "");
  waitForPosting("org.corvale.wrixel2prefs.preferencechanged/hk");
  ctl({"notify", "Anna", "Tea?", "--app", "Chat"});
  EXPECT_EQ(errors_, "");
  waitForText("Anna:Tea?");
  ctl({"stop"});
  ctl({"apps", "test", "Chat"});
  waitForText("Sender:SomeText");
  const std::string settings = ctl({"settings", "list"});
  EXPECT_NE(settings.find("apps.Chat.icon"), std::string::npos) << settings;

  setBandProperty("HeartRate", "y", 72);
  EXPECT_EQ(ctl({"measure"}), "72 bpm\n");
  // The companion stores it on its own.
  std::string rates;
  for (int i = 0; i < 20 && !rates.ends_with(",72\n"); ++i) {
    rates = ctl({"heart-rate", "--csv", "--since", "1h"});
  }
  EXPECT_TRUE(rates.ends_with(",72\n")) << rates;
  EXPECT_NE(ctl({"heart-rate", "--plot"}).find("70 "), std::string::npos);

  setBandProperty("Steps", "u", 4321);
  waitForStatus("Steps", 4321);
  EXPECT_EQ(ctl({"steps"}).substr(0, 15), "Steps     4321\n");
  const std::string status = ctl({"status"});
  for (const char* line : {"Link              connected, band ", "Steps             4321\n"}) {
    EXPECT_NE(status.find(line), std::string::npos) << status;
  }

  const auto band = bus_->getProperty(kStatus, "Band");
  ASSERT_TRUE(band);
  EXPECT_EQ(ctl({"lock"}), "Locked to " + *band->text() + ".\n");
  EXPECT_EQ(ctl({"unlock"}), "Not locked to any band.\n");

  events_.clear();
  ctl({"stopwatch", "start"});
  waitUntil("the band's clock is set", [this] { return has("Written"); });
  const std::string elapsed = ctl({"stopwatch", "stop"});
  EXPECT_TRUE(elapsed.starts_with("00:0") && elapsed.size() == 9) << elapsed;
}

TEST_F(CtlSessionTest, WatchTellsWhatTheOthersDo) {
  writeSettings("connectedMode = 1\n");
  startBoth();
  const auto watch = start({WRIXEL2CTL_PATH, "watch", "--json"});
  waitForBand();
  const auto tells = [&](const char* part) {
    return watch->output().find(part) != std::string::npos;
  };
  waitUntil("the watch follows", [&, steps = 0U]() mutable {
    setBandProperty("Steps", "u", ++steps);
    return tells(R"("event":"status","property":"Steps")");
  });
  // What somebody else posts it does not tell.
  bus_->emitSignal("/org/corvale/NotifyCenter", "org.corvale.NotifyCenter", "Posted", "s",
                   {"org.example.hello"});
  writeSettings("connectedMode = 1\ntimeout = 7\n");
  waitUntil("the companion's posting is told",
            [&] { return tells(R"("name":"org.corvale.wrixel2prefs.preferencechanged/hk")"); });
  EXPECT_FALSE(tells("org.example.hello"));
  EXPECT_TRUE(tells(R"("name":"org.corvale.wrixel2.capabilities")"));
  watch->signal(SIGINT);
  waitForExit(*watch, 0);
}

TEST_F(CtlSessionTest, AKeyIsImportedAndTriedOnTheBand) {
  const std::string wrong(32, 'f');
  writePairingKey(wrong);
  writeSettings("connectedMode = 1\n");
  startBoth();
  waitForStatus("Authentication", "refused");

  const std::string file = directory_ / "key.txt";
  std::ofstream(file) << kBandsKey << "\n";
  const std::string accepted = ctl({"key", "import", file});
  EXPECT_NE(accepted.find("The band accepts it."), std::string::npos) << accepted;
  waitForStatus("Authentication", "accepted");
  waitForBand();
  EXPECT_EQ(ctl({"key", "show", "--reveal"}), std::string(kBandsKey) + "\n");

  std::ofstream(file) << wrong << "\n";
  ctl({"key", "import", file}, 1);
  EXPECT_NE(errors_.find("the band refuses this key"), std::string::npos) << errors_;

  setBandProperty("InRange", "b", false);
  std::ofstream(file) << kBandsKey << "\n";
  EXPECT_NE(ctl({"key", "import", file, "--no-check"}).find("Imported"), std::string::npos);
}

TEST_F(CtlSessionTest, CompletionOffersIdentifiersAndRunsNothingThatTheySay) {
  const std::string trap = directory_ / "trap";
  writeSettings("[apps.\"$(touch " + trap + ")\"]\nicon = 1\n[apps.\"My App\"]\nicon = 1\n");
  const auto complete = [&](const std::string& words) {
    const auto shell =
        start({"bash", "-c",
               "source \"" WRIXEL2_COMPLETIONS "/wrixel2ctl.bash\"; COMP_WORDS=(\"" WRIXEL2CTL_PATH
               "\" " +
                   words +
                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _wrixel2ctl; printf '%s;' "
                   "\"${COMPREPLY[@]}\""});
    waitForExit(*shell, 0);
    return shell->output();
  };
  EXPECT_EQ(complete("stopw"), "stopwatch;");
  EXPECT_EQ(complete("settings get batt"), "battery.alertBelow;");
  EXPECT_EQ(complete("apps test My"), "My\\ App;");
  EXPECT_NE(complete("apps set ''").find("touch"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(trap));
}

}  // namespace
}  // namespace wrixel2::integration
