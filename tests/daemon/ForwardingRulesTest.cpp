#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "daemon/ForwardingRules.h"
#include "platform/simulated/RecordingLog.h"
#include "tests/daemon/Printers.h"

namespace wrixel2::daemon {

namespace {

using platform::Dictionary;
using namespace std::chrono_literals;
using enum ForwardingRule;

constexpr const char* kChat = "org.example.Chat";
constexpr const char* kClock = "com.apple.mobiletimer";
constexpr const char* kPhone = "com.apple.mobilephone";
constexpr const char* kNone = nullptr;

std::optional<std::string> optionalText(const char* text) {
  return text != kNone ? std::optional<std::string>(text) : std::nullopt;
}

class ForwardingRulesTest : public testing::Test {
 protected:
  ForwardingDecision decide(const Dictionary& entries, const Bulletin& bulletin) {
    return decideForwarding(bulletin, Settings::fromDictionary(entries, logger_), circumstances_,
                            history_, logger_);
  }

  platform::simulated::RecordingLog log_;
  platform::Logger logger_{log_, "main"};
  ForwardingCircumstances circumstances_{
      .dndActive = false, .deviceLocked = true, .now = platform::MonotonicTime(100h)};
  ForwardingHistory history_;
};

TEST_F(ForwardingRulesTest, TheFirstRuleThatAppliesDecides) {
  const Dictionary kDefaults;
  const Dictionary kOff{{"enabled", false}};
  const Dictionary kOnlyLocked{{"onlyLocked", true}};
  const Dictionary kNoAlarms{{"alarmSwitch", false}};
  const Dictionary kIgnoreDnd{{"donotdisturb", false}};
  const struct {
    const char* what;
    Dictionary settings;
    bool dnd;
    bool locked;
    const char* sectionID;
    const char* title;
    ForwardingRule rule;
  } kCases[] = {
      {"any app", kDefaults, false, true, kChat, "Anna", forward},
      {"no title", kDefaults, false, true, kChat, kNone, forward},
      {"off", kOff, false, true, kChat, "Anna", disabled},
      {"off, all else against it too", kOff, true, false, kPhone, kNone, disabled},
      {"quiet", kDefaults, true, true, kChat, "Anna", doNotDisturb},
      {"quiet not honoured", kIgnoreDnd, true, true, kChat, "Anna", forward},
      {"in use, any lock state", kDefaults, false, false, kChat, "Anna", forward},
      {"in use, only locked", kOnlyLocked, false, false, kChat, "Anna", onlyLocked},
      {"locked, only locked", kOnlyLocked, false, true, kChat, "Anna", forward},
      {"quiet before only locked", kOnlyLocked, true, false, kChat, "Anna", doNotDisturb},
      {"phone app", kDefaults, false, true, kPhone, "Anna", phoneApp},
      {"only locked before phone app", kOnlyLocked, false, false, kPhone, "Anna", onlyLocked},
      {"alarm", kDefaults, false, true, kClock, "Alarm", enhancedAlarm},
      {"alarm, empty title", kDefaults, false, true, kClock, "", enhancedAlarm},
      {"alarm, quiet, in use", kOnlyLocked, true, false, kClock, "Alarm", enhancedAlarm},
      {"alarm, off", kOff, false, true, kClock, "Alarm", disabled},
      {"alarm, no such mode", kNoAlarms, false, true, kClock, "Alarm", forward},
      {"alarm, no such mode, quiet", kNoAlarms, true, true, kClock, "Alarm", doNotDisturb},
      {"snoozing is as any app", kDefaults, false, true, kClock, "Snoozing", forward},
      {"snoozing, quiet", kDefaults, true, true, kClock, "Snoozing", doNotDisturb},
      {"clock, no title", kDefaults, false, true, kClock, kNone, clockWithoutTitle},
      {"clock, no title, only locked", kOnlyLocked, false, false, kClock, kNone, onlyLocked},
      {"alarm of another app", kDefaults, true, true, kChat, "Alarm", doNotDisturb},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    circumstances_.dndActive = c.dnd;
    circumstances_.deviceLocked = c.locked;
    const auto decision =
        decide(c.settings, {c.sectionID, optionalText(c.title), "text", std::nullopt});
    EXPECT_EQ(decision.rule, c.rule);
    EXPECT_EQ(decision.alert.has_value(), c.rule == forward || c.rule == enhancedAlarm);
    if (c.rule == enhancedAlarm) {
      EXPECT_EQ(decision.alert, (BandAlert{20, 27, 8, {}}));
    }
  }
}

TEST_F(ForwardingRulesTest, TheQuietTimeIsPerAppOrPerAppAndSender) {
  const struct {
    const char* what;
    Dictionary settings;
    const char* lastSender;
    std::chrono::milliseconds elapsed;
    const char* sender;
    ForwardingRule rule;
  } kCases[] = {
      {"just before its end", {}, "Anna", 14'999ms, "Anna", doNotAnnoy},
      {"at its end", {}, "Anna", 15'000ms, "Anna", forward},
      {"per app: the sender is no matter", {}, "Anna", 1s, "Ben", doNotAnnoy},
      {"per app: unknown senders", {}, kNone, 1s, kNone, doNotAnnoy},
      {"any other mode is per app", {{"mode", 2}}, "Anna", 1s, "Ben", doNotAnnoy},
      {"a negative mode too", {{"mode", -1}}, "Anna", 1s, "Ben", doNotAnnoy},
      {"same sender", {{"mode", 1}}, "Anna", 14'999ms, "Anna", doNotAnnoy},
      {"same sender, at the end", {{"mode", 1}}, "Anna", 15s, "Anna", forward},
      {"another sender", {{"mode", 1}}, "Anna", 0ms, "Ben", forward},
      {"senders differ by case", {{"mode", 1}}, "Anna", 0ms, "anna", forward},
      // Deliberate: nobody knows whether it was the same one.
      {"two unknown senders", {{"mode", 1}}, kNone, 0ms, kNone, forward},
      {"an unknown one after a known", {{"mode", 1}}, "Anna", 0ms, kNone, forward},
      {"another quiet time", {{"timeout", 60}}, "Anna", 59'999ms, "Anna", doNotAnnoy},
      {"another quiet time, at its end", {{"timeout", 60}}, "Anna", 60s, "Anna", forward},
      {"no quiet time", {{"timeout", 0}}, "Anna", 0ms, "Anna", forward},
      {"a negative one never ends", {{"timeout", -1}}, "Anna", 90h, "Anna", doNotAnnoy},
      {"switched off", {{"donotannoy", false}}, "Anna", 0ms, "Anna", forward},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Dictionary settings = c.settings;
    settings.emplace("donotannoy", true);
    history_.insert_or_assign(
        kChat, MsgInfo(optionalText(c.lastSender), {}, circumstances_.now - c.elapsed));
    const auto sender = optionalText(c.sender);
    EXPECT_EQ(decide(settings, {kChat, "Anna", "text", sender}).rule, c.rule);
    EXPECT_EQ(decide(settings, {"org.example.Other", "Anna", "text", sender}).rule, forward);
  }
}

TEST_F(ForwardingRulesTest, TheHistoryHoldsWhatCanDecideAndNoMoreThanAPhoneHas) {
  const Settings settings;
  const auto note = [&](int app, platform::TimeInterval later) {
    circumstances_.now += later;
    remember(history_, std::to_string(app), MsgInfo({}, {}, circumstances_.now), settings);
  };
  note(1, 0s);
  note(2, 14'999ms);
  EXPECT_EQ(history_.size(), 2U);
  note(3, 1ms);
  EXPECT_FALSE(history_.contains("1"));
  for (int app = 4; app < 1000; ++app) {
    note(app, 1us);
  }
  note(999, 1us);
  EXPECT_EQ(history_.size(), 256U);
  EXPECT_FALSE(history_.contains("743"));
  EXPECT_TRUE(history_.contains("744"));
}

TEST_F(ForwardingRulesTest, TheAlertIsComposedAsTheAppsSettingsSay) {
  const Dictionary kApp{{"MBRepeat-org.example.Chat", 2},
                        {"MBIcon-org.example.Chat", 9},
                        {"MBPattern-org.example.Chat", 4},
                        {"MBPreview-org.example.Chat", true}};
  Dictionary noPreview = kApp;
  noPreview.insert_or_assign("MBPreview-org.example.Chat", false);
  const struct {
    const char* what;
    Dictionary settings;
    std::optional<std::string> title;
    const char* message;
    BandAlert alert;
  } kCases[] = {
      {"title and text", kApp, "Anna", "See you at six", {3, 9, 4, "Anna:See you at six"}},
      {"text alone", kApp, {}, "See you at six", {3, 9, 4, "See you at six"}},
      {"title alone", kApp, "Anna", "", {3, 9, 4, "Anna:"}},
      {"empty title", kApp, "", "See you", {3, 9, 4, ":See you"}},
      {"nothing", kApp, {}, "", {3, 9, 4, ""}},
      {"no preview", noPreview, "Anna", "See you at six", {3, 9, 4, {}}},
      // Still an alert here: that icon 0 means none is for the band's front object to know.
      {"unknown app", {}, "Anna", "See you at six", {1, 0, 0, {}}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(decide(c.settings, {kChat, c.title, c.message, {}}).alert, c.alert) << c.what;
  }
}

}  // namespace
}  // namespace wrixel2::daemon
