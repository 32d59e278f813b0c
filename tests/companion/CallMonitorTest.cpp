#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/CallMonitor.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/companion/Doubles.h"

namespace wrixel2::companion {
namespace {

using platform::Dictionary;
using namespace std::chrono_literals;

struct FakeSource final : CallSource {
  void onChange(std::function<void()> callback) override { changed = std::move(callback); }
  std::optional<bool> isThere() const override { return there; }
  const RingingCalls& ringing() const override { return calls; }
  void silence(const std::string& call) override { done.push_back("silence " + call); }
  void hangUp(const std::string& call) override { done.push_back("hangUp " + call); }

  void ring(const std::string& id, RingingCall call) {
    calls[id] = std::move(call);
    changed();
  }
  void end(const std::string& id) {
    calls.erase(id);
    changed();
  }
  void setThere(bool isThere) {
    there = isThere;
    calls.clear();
    changed();
  }

  std::function<void()> changed;
  std::optional<bool> there = true;
  RingingCalls calls;
  std::vector<std::string> done;
};

const RingingCall kAnna{"+491", "Anna"};
const RingingCall kAnnasNumber{"+491", ""};
const RingingCall kBen{"+492", "Ben"};
const RingingCall kHidden{};

using Lines = std::vector<std::string>;

class CallMonitorTest : public testing::Test {
 protected:
  CallMonitorTest() {
    monitor.addPreferredSource(app);
    monitor.addSource(modem);
    monitor.addSource(otherModem);
    app.there = false;
    monitor.daemonIsReady();
  }
  ~CallMonitorTest() override { phone.runLoop.discardWork(); }

  /// What has been sent to the daemon since the last call.
  Lines sent() {
    Lines lines;
    for (const auto& message : phone.messageCenters.sentMessages()) {
      const bool isNew = platform::boolForKey(message.userInfo, "newCall");
      const bool isEnd = platform::boolForKey(message.userInfo, "callHanged");
      lines.push_back(isNew   ? platform::textForKey(message.userInfo, "text").value_or("no text")
                      : isEnd ? "hanged"
                              : message.name);
    }
    phone.messageCenters.clearSentMessages();
    return lines;
  }
  void pass(platform::TimeInterval time) { phone.runLoop.runFor(time); }

  platform::simulated::SimulatedPlatform phone;
  std::unique_ptr<platform::MessageCenter> daemon =
      phone.messageCenters.centerNamed("org.corvale.wrixel2dIpc");
  FakeBandWork work;
  FakeSource app;
  FakeSource modem;
  FakeSource otherModem;
  CallMonitor monitor{phone.runLoop, phone.clock, *daemon, work};
};

TEST_F(CallMonitorTest, ACallAlertsOnceWhoeverSeesIt) {
  const struct {
    const char* what;
    bool isAppThere;
    FakeSource& first;
    FakeSource& second;
    RingingCall firstCall;
    RingingCall secondCall;
    platform::TimeInterval between;
    Lines sent;
  } kCases[] = {
      {"the app, then the modem", true, app, modem, kAnna, kAnnasNumber, 0s, {"Anna"}},
      {"the modem, then the app", true, modem, app, kAnnasNumber, kAnna, 1s, {"Anna"}},
      {"two modem services", false, modem, otherModem, kAnnasNumber, kHidden, 2s, {"+491"}},
      {"two services, one number", false, modem, otherModem, kAnnasNumber, kAnna, 9s, {"+491"}},
      {"two calls", false, modem, otherModem, kAnnasNumber, kBen, 2001ms, {"+491", "Ben"}},
      {"only the modem, with an app", true, modem, otherModem, kAnnasNumber, kAnna, 0s, {}},
  };
  for (const auto& item : kCases) {
    SCOPED_TRACE(item.what);
    app.setThere(item.isAppThere);
    item.first.ring("1", item.firstCall);
    pass(item.between);
    item.second.ring("2", item.secondCall);
    EXPECT_EQ(sent(), item.sent);
    // Where it is seen to end first, it has ended; the other is only late.
    item.first.end("1");
    item.second.end("2");
    EXPECT_EQ(sent(), item.sent.empty() ? Lines{} : Lines{"hanged"});
    pass(1min);
    EXPECT_EQ(sent(), Lines{});
  }
}

TEST_F(CallMonitorTest, TheLastCallThatEndsEndsTheRinging) {
  modem.ring("1", kAnna);
  pass(5s);
  modem.ring("2", kBen);  // waits while the first one is answered
  EXPECT_EQ(sent(), (Lines{"Anna", "Ben"}));
  EXPECT_EQ(work.causes, 2);
  modem.end("1");
  EXPECT_EQ(sent(), Lines{});
  modem.end("2");
  EXPECT_EQ(sent(), Lines{"hanged"});
  modem.ring("1", kAnna);
  EXPECT_EQ(sent(), Lines{"Anna"}) << "the same name again is another call";
  modem.end("1");
  otherModem.ring("7", kAnnasNumber);
  EXPECT_EQ(sent(), Lines{"hanged"}) << "a slower source shows a call that is over";
  otherModem.end("7");
  pass(1min);

  // A new daemon is told of the calls that ring.
  modem.ring("1", kAnna);
  EXPECT_EQ(sent(), Lines{"Anna"});
  monitor.daemonIsReady();
  EXPECT_EQ(sent(), Lines{"Anna"});
  modem.end("1");
  EXPECT_EQ(sent(), Lines{"hanged"});
  monitor.daemonIsReady();
  EXPECT_EQ(sent(), Lines{});
}

TEST_F(CallMonitorTest, WaitsForTheCallersNumber) {
  const struct {
    const char* what;
    platform::TimeInterval after;
    RingingCall then;
    Lines atOnce;
    Lines later;
  } kCases[] = {
      {"withheld", CallMonitor::kCallerWait, kHidden, {"Unknown"}, {}},
      {"withheld, just before", CallMonitor::kCallerWait - 1ms, kHidden, {}, {"Unknown"}},
      {"number in time", CallMonitor::kCallerWait - 1ms, kAnnasNumber, {"+491"}, {}},
      {"number too late", CallMonitor::kCallerWait, kAnnasNumber, {"Unknown"}, {}},
  };
  for (const auto& item : kCases) {
    SCOPED_TRACE(item.what);
    modem.ring("1", kHidden);
    EXPECT_EQ(sent(), Lines{});
    pass(item.after);
    modem.ring("1", item.then);
    EXPECT_EQ(sent(), item.atOnce);
    pass(1s);
    EXPECT_EQ(sent(), item.later);
    modem.end("1");
    EXPECT_EQ(sent(), Lines{"hanged"});
    pass(1min);
  }
  modem.ring("1", kHidden);
  modem.end("1");
  pass(1min);
  EXPECT_EQ(sent(), Lines{}) << "over before anybody knew of it";
}

TEST_F(CallMonitorTest, FollowsTheSources) {
  app.there.reset();
  modem.ring("1", kAnnasNumber);
  EXPECT_EQ(sent(), Lines{}) << "the app may be there, and know the name";
  app.setThere(false);
  EXPECT_EQ(sent(), Lines{"+491"});
  app.setThere(true);
  app.ring("a", kAnna);
  EXPECT_EQ(sent(), Lines{}) << "the app was started by the call";
  app.setThere(false);
  EXPECT_EQ(sent(), Lines{"hanged"}) << "the app has crashed";
  modem.end("1");
  pass(1min);
  modem.ring("2", kBen);
  EXPECT_EQ(sent(), Lines{"Ben"});
  monitor.removeSource(modem);
  EXPECT_EQ(sent(), Lines{"hanged"});
  EXPECT_EQ(modem.changed, nullptr);
}

TEST_F(CallMonitorTest, ActsOnTheCallsThatRing) {
  monitor.silence();
  monitor.hangUp();
  EXPECT_EQ(sent(), Lines{}) << "there is no call";
  app.setThere(true);
  modem.ring("1", kAnnasNumber);
  app.ring("a", kAnna);
  pass(1min);
  app.ring("b", kBen);
  sent();
  monitor.silence();
  EXPECT_EQ(sent(), Lines{"stopVibration"});
  app.end("a");
  monitor.hangUp();
  EXPECT_EQ(app.done, (Lines{"silence a", "silence b", "hangUp b"}));
  EXPECT_EQ(modem.done, Lines{}) << "the app's is the same call";
}

}  // namespace
}  // namespace wrixel2::companion
