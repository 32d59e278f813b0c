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
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusMessage;
using platform::linux::BusSlot;

class PhoneStateTest : public platform::linux::BusTest {
 protected:
  /// What follows from what follows, through several rounds of questions and answers.
  void settle() {
    for (int round = 0; round < 30; ++round) {
      serveAll();
    }
  }
  void addProperty(const char* path, const char* interface, const char* name, const char* signature,
                   const Value& value) {
    auto slot = other->addInterface(
        path, {interface, {}, {{name, signature, [&value] { return value; }, nullptr}}, {}});
    ASSERT_TRUE(slot);
    slots.push_back(std::move(*slot));
  }
  void change(Value& value, const char* path, const char* interface, const char* name,
              Value changed) {
    value = std::move(changed);
    other->emitSignal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                      {interface, Dictionary{{name, value}}, Array{}});
    settle();
  }
  std::string writeProgram(const std::string& name, const std::string& script) {
    const std::string path = directory.path(name);
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    ::chmod(path.c_str(), 0700);
    return path;
  }

  platform::linux::TemporaryDirectory directory;
  std::vector<BusSlot> slots;
};

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
  ASSERT_EQ(other->requestName(kName), std::nullopt);
  settle();
  EXPECT_TRUE(source.isActive());
  change(profile, kPath, kName, "Profile", "quiet");
  EXPECT_FALSE(source.isActive());
  source.setSilentProfiles({"silent", "quiet"});
  EXPECT_TRUE(source.isActive());
  other->releaseName(kName);
  settle();
  EXPECT_FALSE(source.isActive());
  EXPECT_EQ(changes, 4);
}

TEST_F(PhoneStateTest, PlasmasServiceSaysWhetherItIsInhibited) {
  constexpr const char* kName = "org.freedesktop.Notifications";
  constexpr const char* kPath = "/org/freedesktop/Notifications";
  PlasmaDoNotDisturb source(*own);
  Value inhibited = false;
  addProperty(kPath, kName, "Inhibited", "b", inhibited);
  ASSERT_EQ(other->requestName(kName), std::nullopt);
  settle();
  EXPECT_FALSE(source.isActive());
  change(inhibited, kPath, kName, "Inhibited", true);
  EXPECT_TRUE(source.isActive());
}

class GnomeDoNotDisturbTest : public PhoneStateTest {
 protected:
  GnomeDoNotDisturbTest() { EXPECT_EQ(other->requestName("ca.desrt.dconf"), std::nullopt); }

  /// Counts how often it is asked, and says what is in a file.
  std::string gsettings() {
    return writeProgram("gsettings", "echo \"$@\" >> '" + directory.path("questions") + "'; cat '" +
                                         directory.path("answer") + "'");
  }
  void setShowsBanners(bool shows) {
    std::ofstream(directory.path("answer")) << (shows ? "true\n" : "false\n");
  }
  void changed(const std::string& prefix, const Array& changes) {
    other->emitSignal("/ca/desrt/dconf/Writer/user", "ca.desrt.dconf.Writer", "Notify", "sass",
                      {prefix, changes, "tag"});
    settle();
  }
  int questions() {
    std::ifstream file(directory.path("questions"));
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
      EXPECT_EQ(line, "get org.gnome.desktop.notifications show-banners");
    }
    return count;
  }
};

TEST_F(GnomeDoNotDisturbTest, FollowsTheSwitchForBanners) {
  setShowsBanners(false);
  GnomeDoNotDisturb source(loop, *own, log, gsettings());
  serveUntil([&] { return source.isActive(); });
  setShowsBanners(true);
  changed("/org/gnome/desktop/notifications/show-banners", {""});
  serveUntil([&] { return !source.isActive(); });
  setShowsBanners(false);
  changed("/org/gnome/desktop/", {"background/picture", "notifications/show-banners"});
  serveUntil([&] { return source.isActive(); });
  setShowsBanners(true);
  changed("/org/gnome/", {""});  // a folder that was reset
  serveUntil([&] { return !source.isActive(); });

  const int asked = questions();
  changed("/org/gnome/desktop/notifications/", {"show-in-lock-screen"});
  changed("/org/gnome/desktop/notifications/show-banners-at-all", {""});
  changed("/org/gnome/desktop/background/", {"picture", "color"});
  setShowsBanners(false);
  changed("/org/gnome/desktop/notifications/", {"show-banners"});
  serveUntil([&] { return source.isActive(); });
  EXPECT_EQ(questions(), asked + 1);
}

TEST_F(GnomeDoNotDisturbTest, AChangeDuringAQuestionIsNotMissed) {
  setShowsBanners(false);
  // The first question reads the value, and answers only when it is allowed to.
  const std::string fifo = directory.path("go");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string slow = writeProgram(
      "slow", "value=$(cat '" + directory.path("answer") + "'); : > '" + directory.path("read") +
                  "'; read -r line < '" + fifo + "'; echo \"$value\"");
  GnomeDoNotDisturb source(loop, *own, log, slow);
  int changes = 0;
  source.onChange([&changes] { ++changes; });
  const auto waitUntilAsked = [&] {
    while (!std::ifstream(directory.path("read"))) {
      settle();
    }
    std::remove(directory.path("read").c_str());
  };
  const auto switchTo = [&](bool shows) {
    setShowsBanners(shows);
    changed("/org/gnome/desktop/notifications/", {"show-banners"});
    std::ofstream(fifo) << "go\n";
    waitUntilAsked();
  };
  waitUntilAsked();
  switchTo(true);
  switchTo(false);
  std::ofstream(fifo) << "go\n";
  serveUntil([&] { return source.isActive(); });
  EXPECT_EQ(changes, 1) << "no answer from before a change counts";
}

TEST_F(GnomeDoNotDisturbTest, APhoneWithoutGnomeSaysNothing) {
  GnomeDoNotDisturb none(loop, *own, log, directory.path("no-such-program"));
  EXPECT_FALSE(none.isActive());
  EXPECT_TRUE(log.lines.empty());
  // No such schema: it prints to standard error and fails.
  GnomeDoNotDisturb noSchema(
      loop, *own, log,
      writeProgram("failing", "echo false; : > '" + directory.path("asked") + "'; exit 1"));
  while (!std::ifstream(directory.path("asked"))) {
    settle();
  }
  settle();
  EXPECT_FALSE(noSchema.isActive());
}

TEST_F(PhoneStateTest, OneActiveSourceIsEnough) {
  struct Switch final : DoNotDisturbSource {
    using DoNotDisturbSource::setActive;
  };
  auto first = std::make_unique<Switch>();
  auto second = std::make_unique<Switch>();
  Switch* const one = first.get();
  Switch* const two = second.get();
  std::vector<std::unique_ptr<DoNotDisturbSource>> sources;
  sources.push_back(std::move(first));
  sources.push_back(std::move(second));
  AnyDoNotDisturb any(std::move(sources));
  std::string told;
  any.onChange([&] { told += any.isActive() ? "1" : "0"; });
  one->setActive(true);
  two->setActive(true);
  one->setActive(false);
  EXPECT_EQ(told, "1");
  two->setActive(false);
  EXPECT_EQ(told, "10");
}

TEST_F(PhoneStateTest, AProgramReportsHowItEndedAndWhatItSaid) {
  struct {
    std::string script;
    int status;
    std::string output;
  } const cases[] = {
      {"echo one; echo two >&2; echo three", 0, "one\nthree\n"},
      {"exit 3", 3, ""},
      {"kill -TERM $$", 128 + 15, ""},
      {"cat", 0, ""},  // there is nothing to read
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.script);
    bool isFinished = false;
    auto process = ProgramOutput::start(loop, {"sh", "-c", c.script},
                                        [&](const ProgramOutput::Outcome& outcome) {
                                          EXPECT_EQ(outcome.status, c.status);
                                          EXPECT_EQ(outcome.output, c.output);
                                          isFinished = true;
                                        });
    ASSERT_TRUE(process);
    EXPECT_FALSE(isFinished);
    serveUntil([&] { return isFinished; });
  }
  bool isFinished = false;
  auto endless = ProgramOutput::start(loop, {"yes"}, [&](const ProgramOutput::Outcome& outcome) {
    EXPECT_EQ(outcome.status, 128 + 9);
    isFinished = true;
  });
  ASSERT_TRUE(endless);
  serveUntil([&] { return isFinished; });
  auto dropped = ProgramOutput::start(loop, {"sleep", "1000"},
                                      [](const ProgramOutput::Outcome&) { ADD_FAILURE(); });
  ASSERT_TRUE(dropped);
  dropped->reset();  // would wait for it if it were not ended
  EXPECT_EQ(ProgramOutput::start(loop, {"/no/such/program"}, nullptr).error().code, ENOENT);
}

// The lock ---------------------------------------------------------------------------------------

/// A screen saver of another program, whose object is at one path.
class ScreenSaverTest : public PhoneStateTest {
 protected:
  void appear(const char* path) {
    auto slot = other->addInterface(
        path, {kName,
               {{"GetActive",
                 {},
                 {{"active", "b"}},
                 [this](const BusMessage& call) { call.reply("b", {isActive}); }}},
               {},
               {}});
    ASSERT_TRUE(slot);
    object = std::move(*slot);
    ASSERT_EQ(other->requestName(kName), std::nullopt);
    settle();
  }
  void announce(bool active) {
    other->emitSignal("/ScreenSaver", kName, "ActiveChanged", "b", {active});
    settle();
  }

  static constexpr const char* kName = "org.freedesktop.ScreenSaver";
  bool isActive = true;
  BusSlot object;
};

TEST_F(ScreenSaverTest, IsFollowedAsItComesAndGoes) {
  for (const char* path : {"/org/freedesktop/ScreenSaver", "/ScreenSaver"}) {
    SCOPED_TRACE(path);
    isActive = true;
    ScreenSaverLock witness(*own, kName, {"/org/freedesktop/ScreenSaver", "/ScreenSaver"});
    settle();
    EXPECT_EQ(witness.isLocked(), std::nullopt);
    appear(path);
    EXPECT_EQ(witness.isLocked(), true);
    announce(false);
    EXPECT_EQ(witness.isLocked(), false);
    own->emitSignal("/ScreenSaver", kName, "ActiveChanged", "b", {true});
    settle();
    EXPECT_EQ(witness.isLocked(), false) << "of another program";
    ScreenSaverLock late(*own, kName, {"/org/freedesktop/ScreenSaver", "/ScreenSaver"});
    settle();
    EXPECT_EQ(late.isLocked(), true);
    other->releaseName(kName);
    settle();
    EXPECT_EQ(witness.isLocked(), std::nullopt);
    object.reset();
  }
}

TEST_F(ScreenSaverTest, OneThatOnlyHasTheNameSaysNothing) {
  ASSERT_EQ(other->requestName(kName), std::nullopt);
  ScreenSaverLock witness(*own, kName, {"/org/freedesktop/ScreenSaver", "/ScreenSaver"});
  settle();
  EXPECT_EQ(witness.isLocked(), std::nullopt);
}

/// logind with one session at most.
class LogindTest : public PhoneStateTest {
 protected:
  LogindTest() {
    const auto answerWith = [](const std::string& path) {
      return [&path](const BusMessage& call) {
        if (path.empty()) {
          call.replyError("org.freedesktop.login1.NoSuchSession", "none");
        } else {
          call.reply("o", {path});
        }
      };
    };
    auto slot = other->addInterface(
        "/org/freedesktop/login1",
        {"org.freedesktop.login1.Manager",
         {{"GetSession", {{"id", "s"}}, {{"path", "o"}}, answerWith(automatic)},
          {"GetSessionByPID", {{"pid", "u"}}, {{"path", "o"}}, answerWith(ofProcess)}},
         {},
         {}});
    EXPECT_TRUE(slot);
    slots.push_back(std::move(*slot));
    addProperty(kSession, kInterface, "LockedHint", "b", hint);
  }
  void appear() {
    ASSERT_EQ(other->requestName("org.freedesktop.login1"), std::nullopt);
    settle();
  }
  void announce(const char* member) {
    other->emitSignal("/org/freedesktop/login1", "org.freedesktop.login1.Manager", member, "so",
                      {"2", kSession});
    settle();
  }

  static constexpr const char* kSession = "/org/freedesktop/login1/session/_32";
  static constexpr const char* kInterface = "org.freedesktop.login1.Session";
  std::string automatic;
  std::string ofProcess;
  Value hint = true;
};

TEST_F(LogindTest, TheSessionsHintIsFollowedAndRequestsAreNot) {
  automatic = kSession;
  LogindLock witness;
  witness.busFound(*own);
  settle();
  EXPECT_EQ(witness.isLocked(), std::nullopt);
  appear();
  EXPECT_EQ(witness.isLocked(), true);
  other->emitSignal(kSession, kInterface, "Unlock", "", {});
  settle();
  EXPECT_EQ(witness.isLocked(), true);
  change(hint, kSession, kInterface, "LockedHint", false);
  EXPECT_EQ(witness.isLocked(), false);
  other->emitSignal(kSession, kInterface, "Lock", "", {});
  settle();
  EXPECT_EQ(witness.isLocked(), false);
}

TEST_F(LogindTest, ASessionMayComeLateAndGo) {
  appear();
  LogindLock witness;
  witness.busFound(*own);
  settle();
  EXPECT_EQ(witness.isLocked(), std::nullopt);
  ofProcess = kSession;
  announce("SessionNew");
  EXPECT_EQ(witness.isLocked(), true);
  ofProcess.clear();
  announce("SessionRemoved");
  EXPECT_EQ(witness.isLocked(), std::nullopt);
}

TEST_F(PhoneStateTest, TheFirstWitnessThatKnowsDecides) {
  struct Witness final : LockWitness {
    using LockWitness::say;
  };
  std::vector<std::unique_ptr<LockWitness>> witnesses;
  std::vector<Witness*> w;
  for (int i = 0; i < 3; ++i) {
    auto witness = std::make_unique<Witness>();
    w.push_back(witness.get());
    witnesses.push_back(std::move(witness));
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
