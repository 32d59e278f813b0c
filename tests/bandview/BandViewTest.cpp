#include <algorithm>
#include <clocale>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "bandview/AlertIcon.h"
#include "bandview/Menu.h"
#include "bandview/Screen.h"
#include "bandview/TerminalText.h"
#include "bandview/Timeline.h"
#include "bandview/Vibration.h"

namespace wrixel2::bandview {
namespace {

using namespace std::chrono_literals;

class BandViewTest : public testing::Test {
 protected:
  BandViewTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }

  static std::string withoutColours(const std::string& line) {
    std::string text;
    bool inEscape = false;
    for (const char c : line) {
      if (c == '\x1b') {
        inEscape = true;
      } else if (!inEscape) {
        text += c;
      } else if (c == 'm') {
        inEscape = false;
      }
    }
    return text;
  }

  static std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
      text += withoutColours(line) + "\n";
    }
    return text;
  }

  static View fullView() {
    View view;
    view.band = BandState{"authenticated",
                          "c8:0f:10:12:34:56",
                          80,
                          4021,
                          2874,
                          96,
                          {0xEA, 0x07, 3, 2, 12, 30, 5, 1, 0, 0, 0},
                          true};
    view.displayed = Displayed{{0x05, 0x01}, "Anna:See you at si"};
    view.isVibrating = true;
    view.vibration = "255 × 65535 ms, 65535 ms off";
    for (int i = 0; i < 50; ++i) {
      view.events.push_back("event " + std::to_string(i));
    }
    view.hints = {"send one", "notify-send Anna Hi"};
    view.heartRate.measured(72);
    view.menu = Menu(view.band, false).items();
    return view;
  }
};

TEST_F(BandViewTest, FitsEveryTerminal) {
  for (int columns = 1; columns <= 120; ++columns) {
    for (const int rows : {1, 2, 7, 8, 9, 10, 12, 15, 18, 24, 60}) {
      for (const bool hasBand : {false, true}) {
        View view = fullView();
        view.band->distance = view.band->calories = 4'294'967'295;
        if (!hasBand) {
          view.band.reset();
        }
        const auto lines = drawScreen(view, {columns, rows});
        EXPECT_LE(lines.size(), static_cast<std::size_t>(rows)) << columns << "x" << rows;
        for (const std::string& line : lines) {
          EXPECT_LE(widthOf(withoutColours(line)), columns) << columns << "x" << rows << line;
        }
      }
    }
  }
}

TEST_F(BandViewTest, ShowsWhatTheBandShows) {
  const std::string screen = joined(drawScreen(fullView(), {80, 24}));
  for (const char* part : {"✉", "Anna:See you at si", "● authenticated", "c8:0f:10:12:34:56",
                           "80 %", "2026-03-02 12:30", "4021", "2874 m, 96 kcal", "72 bpm", "≋",
                           "event 49", "notify-send Anna Hi"}) {
    EXPECT_NE(screen.find(part), std::string::npos) << part << " in\n" << screen;
  }
  EXPECT_EQ(screen.find("event 0\n"), std::string::npos) << "old events make room";
}

TEST_F(BandViewTest, TheLastLinesAreTheMenu) {
  const std::string menu =
      "\n\n n notify  c call  m measure  w walk  b button  r leave range  q quit\n";
  const std::string twoLines =
      "\n n notify  c call  m measure  w walk\n b button  r leave range  q quit\n";
  struct {
    TerminalSize size;
    std::string end;
    bool hasHint, hasEvents;
  } const cases[] = {
      {{80, 24}, menu, true, true},
      {{80, 16}, menu, false, true},
      {{69, 10}, menu, false, false},
      {{68, 10}, "range\n q quit\n", false, false},
      {{40, 17}, "\n" + twoLines, false, false},
      {{40, 10}, "╯     " + twoLines, false, false},
      {{80, 8}, "255 × 65535 ms, 65535 ms o…\n", false, false},
  };
  for (const auto& test : cases) {
    const auto lines = drawScreen(fullView(), test.size);
    const std::string screen = joined(lines);
    const auto has = [&screen](const char* part) { return screen.find(part) != std::string::npos; };
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(test.size.rows));
    EXPECT_EQ(screen.substr(screen.size() - std::min(screen.size(), test.end.size())), test.end);
    EXPECT_EQ(has("notify-send"), test.hasHint) << screen;
    EXPECT_EQ(has("event 49"), test.hasEvents) << screen;
  }
}

TEST_F(BandViewTest, TheMenuOffersWhatIsPossible) {
  BandState away;
  away.isInRange = false;
  struct {
    std::optional<BandState> band;
    bool isCalling;
    std::string keys;
    std::optional<Action> c, r;
  } const cases[] = {
      {std::nullopt, false, "ncmq", Action::call, std::nullopt},
      {BandState(), false, "ncmwbrq", Action::call, Action::leaveRange},
      {away, true, "ncmwbrq", Action::hangUp, Action::comeBack},
  };
  for (const auto& test : cases) {
    const Menu menu(test.band, test.isCalling);
    std::string keys;
    for (const MenuItem& item : menu.items()) {
      keys += item.key;
    }
    EXPECT_EQ(keys, test.keys);
    EXPECT_EQ(menu.actionFor('c'), test.c);
    EXPECT_EQ(menu.actionFor('r'), test.r);
    EXPECT_EQ(menu.actionFor('x'), std::nullopt);
  }
}

TEST_F(BandViewTest, AMeasurementRunsFromItsCommandToItsResult) {
  constexpr const char* kControl = "00002a39-0000-1000-8000-00805f9b34fb";
  const platform::Bytes once{0x15, 0x02, 0x01};
  HeartRate rate;
  EXPECT_EQ(rate.text(), "not measured yet");
  rate.written("00002a37-0000-1000-8000-00805f9b34fb", once);
  rate.written(kControl, platform::Bytes{0x15, 0x02, 0x00});
  rate.written(kControl, platform::Bytes{0x15, 0x02});
  EXPECT_FALSE(rate.isMeasuring());
  rate.written(kControl, once);
  EXPECT_EQ(rate.text(), "measuring…");
  rate.measured(0);
  EXPECT_EQ(rate.text(), "no reading");
  rate.written(kControl, once);
  rate.measured(72);
  EXPECT_EQ(rate.text(), "72 bpm");
  rate.written(kControl, platform::Bytes{0x15, 0x01, 0x01});
  EXPECT_EQ(rate.text(), "72 bpm, measuring…");
  rate.linkEnded();
  EXPECT_EQ(rate.text(), "72 bpm");
}

TEST_F(BandViewTest, TheFrameMovesOnlyWhileTheMotorRuns) {
  View view = fullView();
  const auto frame = [&view] { return withoutColours(drawScreen(view, {80, 24})[2]).find("╭"); };
  view.leansRight = false;
  const auto left = frame();
  view.leansRight = true;
  const auto right = frame();
  view.isVibrating = false;
  EXPECT_EQ(left + 1, frame());
  EXPECT_EQ(right - 1, frame());
}

TEST_F(BandViewTest, NothingInATextReachesTheTerminalAsACommand) {
  View view = fullView();
  view.displayed->text = "a\x1b[2Jb\r\n\tc\x07";
  view.events = {"\x1b]0;title\x07 \x9b\xff"};
  view.band->link = "\x1b[31m";
  for (const std::string& line : drawScreen(view, {80, 24})) {
    for (const char c : withoutColours(line)) {
      EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20) << line;
    }
  }
  EXPECT_EQ(printable("a\x1b[2Jb"), "a [2Jb");
  EXPECT_EQ(printable("a\u202eb\u2069"), "a b ");
  EXPECT_EQ(printable("\xff\xc3"), "??");
  EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a b");
  EXPECT_EQ(printable("grüß 日本?"), "grüß 日本?");
}

TEST_F(BandViewTest, TextsAreMeasuredInColumns) {
  EXPECT_EQ(widthOf("日本"), 4);
  EXPECT_EQ(widthOf("e\xcc\x81"), 1) << "a combining accent";
  EXPECT_EQ(fitted("abc", 5), "abc  ");
  EXPECT_EQ(fitted("abcdef", 5), "abcd…");
  EXPECT_EQ(fitted("日本語", 5), "日本…");
  EXPECT_EQ(fitted("日本語", 4), "日… ");
  EXPECT_EQ(fitted("abc", 0), "");
  EXPECT_EQ(centred("ab", 6), "  ab  ");
  EXPECT_EQ(wrapped("See you at six", 8), (std::vector<std::string>{"See you", "at six"}));
  EXPECT_EQ(wrapped("abcdefghij", 4), (std::vector<std::string>{"abcd", "efgh", "ij"}));
  EXPECT_EQ(wrapped("日本", 1), std::vector<std::string>{});
}

TEST_F(BandViewTest, IconsAreKnownByTheirBytes) {
  struct {
    platform::Bytes bytes;
    std::string name;
  } const icons[] = {
      {{0x05, 0x01}, "message (icon 9)"},  {{0x05, 0x01, 0x00}, "message (icon 9)"},
      {{0x03, 0x01}, "call (icon 29)"},    {{0xFA, 0x01, 0x0A}, "alarm (icon 27)"},
      {{0xFA, 0x01, 0x01}, "icon 8"},      {{0x03}, "buzz (icon 1)"},
      {{0xFA, 0x01, 0x7F}, "icon fa017f"}, {{0x05, 0x01, 0x00, 0x00}, "icon 05010000"},
  };
  for (const auto& icon : icons) {
    EXPECT_EQ(alertIcon(icon.bytes).name, icon.name);
    EXPECT_EQ(widthOf(alertIcon(icon.bytes).glyph), 1) << icon.name;
  }
}

TEST_F(BandViewTest, AVibrationEndsWithItsLastPulse) {
  const platform::MonotonicTime start{1h};
  const Vibration vibration{350ms, 100ms, 3, start};
  for (const auto& [after, isOn] : std::initializer_list<std::pair<platform::TimeInterval, bool>>{
           {0ms, true}, {349ms, true}, {350ms, false}, {450ms, true}, {1249ms, true}}) {
    EXPECT_EQ(vibration.isOn(start + after), isOn) << after.count();
    EXPECT_FALSE(vibration.isOver(start + after));
  }
  EXPECT_TRUE(vibration.isOver(start + 1250ms));
  // All zeros is the order to stop.
  EXPECT_TRUE((Vibration{0ms, 0ms, 0, start}).isOver(start));
}

TEST_F(BandViewTest, TheTimelineBeginsWithTheMessage) {
  const platform::MonotonicTime start{1h};
  Timeline timeline;
  timeline.note(Stage::write, start);  // of the band's own setting up
  EXPECT_EQ(timeline.missing(), "message in");
  timeline.note(Stage::message, start + 1s);
  timeline.note(Stage::write, start + 1012ms);
  timeline.note(Stage::icon, start + 1020ms);
  timeline.note(Stage::write, start + 2s);
  timeline.note(Stage::text, start + 3s);
  EXPECT_FALSE(timeline.isComplete());
  EXPECT_EQ(timeline.missing(), "vibration");
  timeline.note(Stage::vibration, start + 1150ms);
  EXPECT_TRUE(timeline.isComplete());
  EXPECT_EQ(timeline.report(),
            "message in        0 ms\n"
            "first write      12 ms\n"
            "icon             20 ms\n"
            "vibration       150 ms\n"
            "text           2000 ms\n");
}

}  // namespace
}  // namespace wrixel2::bandview
