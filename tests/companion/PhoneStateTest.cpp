// What the phone's services say of Do Not Disturb and of the lock.

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "companion/AnyDoNotDisturb.h"
#include "companion/GnomeDoNotDisturb.h"
#include "companion/LogindLock.h"
#include "companion/PhoshDoNotDisturb.h"
#include "companion/PlasmaDoNotDisturb.h"
#include "companion/ProgramOutput.h"
#include "companion/ScreenSaverLock.h"
#include "companion/WitnessedLock.h"
#include "tests/companion/ServiceTest.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Value;
using platform::linux::BusMessage;

class PhoneStateTest : public ServiceTest {};

// Do Not Disturb ---------------------------------------------------------------------------------

TEST_F(PhoneStateTest, PhoshsProfileCountsIfTheOwnerSaysSo) {
  constexpr const char* kName = "org.sigxcpu.Feedback";
  constexpr const char* kPath = "/org/sigxcpu/Feedback";
  PhoshDoNotDisturb source(*own);
  source.setSilentProfiles({"silent"});
  int changes = 0;
  source.onChange([&changes] { ++changes; });
  settle();
  EXPECT_FALSE(source.isActive());
  Value profile = "silent";
  addProperty(kPath, kName, "Profile", "s", profile);
  appear(kName);
  EXPECT_TRUE(source.isActive());
  change(profile, kPath, kName, "Profile", "quiet");
  EXPECT_FALSE(source.isActive());
  source.setSilentProfiles({"silent", "quiet"});
  EXPECT_TRUE(source.isActive());
  vanish(kName);
  EXPECT_FALSE(source.isActive());
  EXPECT_EQ(changes, 4);
}

TEST_F(PhoneStateTest, PlasmasServiceSaysWhetherItIsInhibited) {
  constexpr const char* kName = "org.freedesktop.Notifications";
  constexpr const char* kPath = "/org/freedesktop/Notifications";
  PlasmaDoNotDisturb source(*own);
  Value inhibited = false;
  addProperty(kPath, kName, "Inhibited", "b", inhibited);
  appear(kName);
  EXPECT_FALSE(source.isActive());
  change(inhibited, kPath, kName, "Inhibited", true);
  EXPECT_TRUE(source.isActive());
}

class GnomeDoNotDisturbTest : public PhoneStateTest {
 protected:
  GnomeDoNotDisturbTest() { appear("ca.desrt.dconf"); }

  /// A program in the directory of these files: "answer" is what gsettings says.
  std::string program(const std::string& script) {
    std::string path = directory.path("gsettings");
    std::ofstream(path) << "#!/bin/sh\ncd '" << directory.path() << "'\n" << script << "\n";
    ::chmod(path.c_str(), 0700);
    return path;
  }
  void setShowsBanners(bool shows) {
    std::ofstream(directory.path("answer")) << (shows ? "true\n" : "false\n");
  }
  void changed(const std::string& prefix, const Array& changes) {
    emit("/ca/desrt/dconf/Writer/user", "ca.desrt.dconf.Writer", "Notify", "sass",
         {prefix, changes, "tag"});
  }
  int questions() {
    std::ifstream file(directory.path("questions"));
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
      EXPECT_EQ(line, "get org.gnome.desktop.notifications show-banners");
    }
    return count;
  }
  void waitUntilAsked() {
    while (!std::ifstream(directory.path("asked"))) {
      settle();
    }
    std::remove(directory.path("asked").c_str());
  }

  platform::linux::TemporaryDirectory directory;
};

TEST_F(GnomeDoNotDisturbTest, FollowsTheSwitchForBanners) {
  const std::string kFolder = "/org/gnome/desktop/notifications/";
  setShowsBanners(true);
  GnomeDoNotDisturb source(loop, *own, log, program("echo \"$@\" >>questions; cat answer"));
  bool shows = true;
  for (const auto& [prefix, change] :
       {std::pair(kFolder + "show-banners", ""),
        std::pair(std::string("/org/gnome/desktop/"), "notifications/show-banners"),
        std::pair(std::string("/org/gnome/"), ""),  // a folder that was reset
        std::pair(kFolder, "show-banners")}) {
    SCOPED_TRACE(prefix + change);
    shows = !shows;
    setShowsBanners(shows);
    changed(prefix, {"other", change});
    serveUntil([&] { return source.isActive() == !shows; });
  }
  const int asked = questions();
  changed(kFolder, {"show-in-lock-screen"});
  changed(kFolder + "show-banners-at-all", {""});
  changed("/org/gnome/desktop/background/", {"picture", "color"});
  setShowsBanners(false);
  changed(kFolder, {"show-banners"});
  serveUntil([&] { return source.isActive(); });
  EXPECT_EQ(questions(), asked + 1);
}

TEST_F(GnomeDoNotDisturbTest, AChangeDuringAQuestionIsNotMissed) {
  setShowsBanners(false);
  // Each question reads the value, and answers only when it is allowed to.
  const std::string fifo = directory.path("go");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  GnomeDoNotDisturb source(
      loop, *own, log, program("value=$(cat answer); : >asked; read -r line <go; echo \"$value\""));
  int changes = 0;
  source.onChange([&changes] { ++changes; });
  const auto letAnswer = [&] { std::ofstream(fifo) << "go\n"; };
  waitUntilAsked();
  for (const bool shows : {true, false}) {
    setShowsBanners(shows);
    changed("/org/gnome/desktop/notifications/", {"show-banners"});
    letAnswer();
    waitUntilAsked();
  }
  letAnswer();
  serveUntil([&] { return source.isActive(); });
  EXPECT_EQ(changes, 1) << "no answer from before a change counts";
}

TEST_F(GnomeDoNotDisturbTest, APhoneWithoutGnomeSaysNothing) {
  GnomeDoNotDisturb none(loop, *own, log, directory.path("no-such-program"));
  EXPECT_FALSE(none.isActive());
  EXPECT_TRUE(log.lines.empty());
  // No such schema: it prints to standard error and fails.
  GnomeDoNotDisturb noSchema(loop, *own, log, program("echo false; : >asked; exit 1"));
  waitUntilAsked();
  settle();
  EXPECT_FALSE(noSchema.isActive());
}

TEST_F(PhoneStateTest, OneActiveSourceIsEnough) {
  struct Switch final : DoNotDisturbSource {
    using DoNotDisturbSource::setActive;
  };
  std::vector<std::unique_ptr<DoNotDisturbSource>> sources;
  std::vector<Switch*> switches;
  for (int i = 0; i < 2; ++i) {
    switches.push_back(new Switch);
    sources.emplace_back(switches.back());
  }
  AnyDoNotDisturb any(std::move(sources));
  std::string told;
  any.onChange([&] { told += any.isActive() ? "1" : "0"; });
  switches[0]->setActive(true);
  switches[1]->setActive(true);
  switches[0]->setActive(false);
  EXPECT_EQ(told, "1");
  switches[1]->setActive(false);
  EXPECT_EQ(told, "10");
}

TEST_F(PhoneStateTest, AProgramReportsHowItEndedAndWhatItSaid) {
  const struct {
    const char* script;
    int status;
    std::string output;
  } kCases[] = {
      {"echo one; echo two >&2; echo three", 0, "one\nthree\n"},
      {"exit 3", 3, ""},
      {"kill -TERM $$", 128 + 15, ""},
      {"cat", 0, ""},             // there is nothing to read
      {"exec yes", 128 + 9, ""},  // endless
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.script);
    bool isFinished = false;
    auto process = ProgramOutput::start(
        loop, {"sh", "-c", c.script}, [&](const ProgramOutput::Outcome& outcome) {
          EXPECT_EQ(outcome.status, c.status);
          EXPECT_TRUE(outcome.output == c.output || c.status == 128 + 9) << outcome.output;
          isFinished = true;
        });
    ASSERT_TRUE(process);
    EXPECT_FALSE(isFinished);
    serveUntil([&] { return isFinished; });
  }
  auto dropped = ProgramOutput::start(loop, {"sleep", "1000"},
                                      [](const ProgramOutput::Outcome&) { ADD_FAILURE(); });
  ASSERT_TRUE(dropped);
  dropped->reset();  // would wait for it if it were not ended
  EXPECT_EQ(ProgramOutput::start(loop, {"/no/such/program"}, nullptr).error().code, ENOENT);
}

// The lock ---------------------------------------------------------------------------------------

TEST_F(PhoneStateTest, AScreenSaverIsFollowedAsItComesAndGoes) {
  constexpr const char* kName = "org.freedesktop.ScreenSaver";
  const std::vector<std::string> kPaths = {"/org/freedesktop/ScreenSaver", "/ScreenSaver"};
  for (const std::string& path : kPaths) {
    SCOPED_TRACE(path);
    ScreenSaverLock witness(*own, kName, kPaths);
    settle();
    EXPECT_EQ(witness.isLocked(), std::nullopt);
    appear(kName);
    EXPECT_EQ(witness.isLocked(), std::nullopt) << "it only has the name";
    vanish(kName);
    const auto getActive = [](const BusMessage& call) { call.reply("b", {true}); };
    add(path.c_str(), {kName, {{"GetActive", {}, {{"active", "b"}}, getActive}}, {}, {}});
    appear(kName);
    EXPECT_EQ(witness.isLocked(), true);
    emit("/ScreenSaver", kName, "ActiveChanged", "b", {false});
    EXPECT_EQ(witness.isLocked(), false);
    own->emitSignal("/ScreenSaver", kName, "ActiveChanged", "b", {true});
    settle();
    EXPECT_EQ(witness.isLocked(), false) << "of another program";
    ScreenSaverLock late(*own, kName, kPaths);
    settle();
    EXPECT_EQ(late.isLocked(), true);
    vanish(kName);
    EXPECT_EQ(witness.isLocked(), std::nullopt);
    slots.clear();
  }
}

TEST_F(PhoneStateTest, AScreenSaverThatDoesNotAnswerIsHeardAllTheSame) {
  constexpr const char* kName = "org.gnome.ScreenSaver";
  constexpr const char* kPath = "/org/gnome/ScreenSaver";
  int questions = 0;
  add(kPath, {kName,
              {{"GetActive", {}, {{"active", "b"}}, [&](const BusMessage&) { ++questions; }}},
              {},
              {}});
  appear(kName);
  ScreenSaverLock witness(*own, kName, {kPath});
  settle();
  EXPECT_EQ(questions, 1);
  emit(kPath, kName, "ActiveChanged", "b", {true});
  EXPECT_EQ(witness.isLocked(), true);
}

TEST_F(PhoneStateTest, LogindsHintIsFollowedAsSessionsComeAndGoAndRequestsAreNot) {
  constexpr const char* kLogind = "/org/freedesktop/login1";
  constexpr const char* kManager = "org.freedesktop.login1.Manager";
  constexpr const char* kSession = "/org/freedesktop/login1/session/_32";
  constexpr const char* kInterface = "org.freedesktop.login1.Session";
  std::string automatic = kSession;
  std::string ofProcess;
  const auto answerWith = [](const std::string& path) {
    return [&path](const BusMessage& call) {
      if (path.empty()) {
        call.replyError("org.freedesktop.login1.NoSuchSession", "none");
      } else {
        call.reply("o", {path});
      }
    };
  };
  add(kLogind, {kManager,
                {{"GetSession", {{"id", "s"}}, {{"path", "o"}}, answerWith(automatic)},
                 {"GetSessionByPID", {{"pid", "u"}}, {{"path", "o"}}, answerWith(ofProcess)}},
                {},
                {}});
  Value hint = true;
  addProperty(kSession, kInterface, "LockedHint", "b", hint);
  LogindLock witness;
  witness.busFound(*own);
  settle();
  EXPECT_EQ(witness.isLocked(), std::nullopt);
  appear("org.freedesktop.login1");
  EXPECT_EQ(witness.isLocked(), true);
  emit(kSession, kInterface, "Unlock");
  EXPECT_EQ(witness.isLocked(), true);
  change(hint, kSession, kInterface, "LockedHint", false);
  EXPECT_EQ(witness.isLocked(), false);
  emit(kSession, kInterface, "Lock");
  EXPECT_EQ(witness.isLocked(), false);

  automatic.clear();
  emit(kLogind, kManager, "SessionRemoved", "so", {"2", kSession});
  EXPECT_EQ(witness.isLocked(), std::nullopt);
  ofProcess = kSession;
  emit(kLogind, kManager, "SessionNew", "so", {"2", kSession});
  EXPECT_EQ(witness.isLocked(), false);
}

TEST_F(PhoneStateTest, TheFirstWitnessThatKnowsDecides) {
  struct Witness final : LockWitness {
    using LockWitness::say;
  };
  std::vector<std::unique_ptr<LockWitness>> witnesses;
  std::vector<Witness*> w;
  for (int i = 0; i < 3; ++i) {
    w.push_back(new Witness);
    witnesses.emplace_back(w.back());
  }
  WitnessedLock lock(std::move(witnesses));
  std::string told;
  lock.onChange([&] { told += lock.isLocked() ? "1" : "0"; });
  w[2]->say(true);
  EXPECT_EQ(told, "1");
  w[1]->say(true);
  w[2]->say(false);
  EXPECT_EQ(told, "1");
  w[0]->say(false);
  EXPECT_EQ(told, "10");
  w[0]->say(std::nullopt);
  EXPECT_EQ(told, "101");
  w[1]->say(std::nullopt);
  EXPECT_EQ(told, "1010");
}

}  // namespace
}  // namespace wrixel2::companion
