#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "SessionTest.h"

namespace wrixel2::integration {
namespace {

/// Many apps notify once each, while both programs are killed and started again. An app's name is
/// in the log, and so says what became of its notification.
class SlowAccountingTest : public SessionTest {
 protected:
  static std::string appNumber(int number) { return "app-" + std::to_string(number) + "-"; }

  void send(int count) {
    for (int i = 0; i < count; ++i) {
      notify(appNumber(sent_++), "Title", "Text");
    }
  }
  /// What the program logged is kept.
  void crash(std::unique_ptr<Program>& program, const char* name) {
    kill(program, name);
    logs_ += program->errors();
    program.reset();
  }
  void killDaemon() {
    crash(daemon_, kDaemonName);
    ++daemonsKilled_;
  }
  void killCompanion() { crash(companion_, kCompanionName); }
  /// Until the notification of an app that notifies last has come out at the other end.
  void waitUntilAllHandedOn() {
    const std::string last = appNumber(sent_);
    send(1);
    waitUntil("the last notification is handed on",
              [&] { return daemon_->hasLogged("#Forwaring: " + last); });
  }

  std::string allLogs() const { return logs_ + daemon_->errors() + companion_->errors(); }
  /// How often each app stands behind those words.
  std::map<int, int> timesLogged(const std::string& words) const {
    std::map<int, int> times;
    const std::string logs = allLogs();
    const std::string start = words + "app-";
    for (std::size_t at = logs.find(start); at != std::string::npos;
         at = logs.find(start, at + start.size())) {
      ++times[std::stoi(logs.substr(at + start.size()))];
    }
    return times;
  }

  std::string logs_;
  int sent_ = 0;
  int daemonsKilled_ = 0;
};

TEST_F(SlowAccountingTest, EveryNotificationIsAccountedFor) {
  constexpr int kNotifications = 1000;
  constexpr int kBurst = 25;
  writeSettings("");
  startBoth();
  std::set<int> unseen;
  for (int round = 0; sent_ < kNotifications; ++round) {
    SCOPED_TRACE(round);
    send(kBurst);
    switch (round % 8) {
      case 1:  // in the middle of a burst
        killDaemon();
        send(kBurst);
        startDaemon();
        break;
      case 3:  // for longer than all can wait
        killDaemon();
        for (int i = 0; i < 12; ++i) {
          send(kBurst);
        }
        waitUntil("too many wait", [this] { return companion_->hasLogged("dropped so far"); });
        startDaemon();
        break;
      case 5:
        // Nothing waits in the companion, and what is sent while there is none is not seen.
        waitUntilAllHandedOn();
        killCompanion();
        for (int i = 0; i < kBurst; ++i) {
          unseen.insert(sent_);
          send(1);
        }
        startCompanion();
        break;
      case 7:
        waitUntilAllHandedOn();
        break;
      default:
        break;
    }
  }
  waitUntilAllHandedOn();

  auto forwarded = timesLogged("#Forwaring: ");
  auto notForwarded = timesLogged("Not forwarding ");
  auto dropped = timesLogged("Dropped a notification of ");
  EXPECT_FALSE(dropped.empty()) << "more than can wait have been sent";
  EXPECT_GT(forwarded.size(), kNotifications / 2U);
  int lost = 0;
  for (int i = 0; i < sent_; ++i) {
    const int total = forwarded[i] + notForwarded[i] + dropped[i];
    EXPECT_LE(total, unseen.contains(i) ? 0 : 1) << "more than once: " << i;
    lost += total == 0 && !unseen.contains(i) ? 1 : 0;
  }
  // A daemon answers before it acts: what it had just answered goes with it, one at most.
  EXPECT_LE(lost, daemonsKilled_);
  EXPECT_GE(daemonsKilled_, 4);
  EXPECT_NE(allLogs().find("(1 dropped so far)"), std::string::npos);
}

}  // namespace
}  // namespace wrixel2::integration
