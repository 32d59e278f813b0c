#include <string>
#include <utility>
#include <vector>

#include "ctl/HeartRatePlot.h"
#include "ctl/TimeText.h"
#include "platform/linux/HealthDatabase.h"
#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using enum ExitStatus;
using namespace std::chrono_literals;

class HeartRateTest : public CtlTest {
 protected:
  platform::Date ago(platform::TimeInterval interval) const { return clock.now() - interval; }

  void store(platform::TimeInterval before, double rate) {
    platform::linux::HealthDatabase health(directory.path("health.sqlite"), "a band");
    EXPECT_EQ(health.save({std::string(platform::kHeartRateType),
                           std::string(platform::kCountPerMinute), rate, ago(before), ago(before)}),
              std::nullopt);
  }
};

TEST_F(HeartRateTest, IsShownAndExported) {
  EXPECT_EQ(outputOf("heart-rate"), "No heart rate was measured in that time.\n");
  EXPECT_EQ(outputOf("heart-rate --csv"), "time,unix,bpm\n");
  store(50h, 100);
  store(2h, 60);
  store(1h, 71.5);
  store(0s, 75);
  EXPECT_EQ(outputOf("heart-rate"),
            "2026-11-23 09:00:00   60 bpm\n"
            "2026-11-23 10:00:00   72 bpm\n"
            "2026-11-23 11:00:00   75 bpm\n"
            "3 measured, 60 to 75 bpm, 69 on average\n");
  EXPECT_EQ(outputOf("heart-rate --since 2026-11-21 --until 2h --csv"),
            "time,unix,bpm\n"
            "2026-11-21T09:00:00+01:00,1795248000,100\n"
            "2026-11-23T09:00:00+01:00,1795420800,60\n");
  EXPECT_EQ(outputOf("heart-rate --json --since 90m --until 30m"),
            "[\n  {\n    \"heartRate\": 71.5,\n    \"time\": \"2026-11-23T10:00:00+01:00\",\n    "
            "\"unix\": 1795424400\n  }\n]\n");

  EXPECT_EQ(run("heart-rate --omh --since yesterday --until 90m"), done);
  const std::string once = console.output;
  std::string flat = once;
  std::erase_if(flat, [](char c) { return c == ' ' || c == '\n'; });
  for (const char* part :
       {R"("effective_time_frame":{"date_time":"2026-11-23T09:00:00+01:00"})",
        R"("heart_rate":{"unit":"beats/min","value":60})",
        R"("schema_id":{"name":"heart-rate","namespace":"omh","version":"2.0"})"}) {
    expectPart(flat, part);
  }
  run("heart-rate --omh --since yesterday --until 90m");
  EXPECT_EQ(console.output, once) << "a data point's identifier is not its own";

  EXPECT_TRUE(directory.write("health.sqlite", std::string(1000, 'x')).size() > 1);
  EXPECT_EQ(run("heart-rate"), failed);
}

TEST_F(HeartRateTest, APlotShowsRatesOverTimeAndGapsAsGaps) {
  Samples samples;
  const auto add = [&samples, this](platform::TimeInterval before, double rate) {
    samples.push_back({"", "", rate, ago(before), ago(before)});
  };
  add(60min, 60);
  add(50min, 60);
  add(40min, 100);
  // A pause of twice the usual time is joined, one of more than four times is not.
  add(20min, 100);
  PlotFrame frame{ago(60min), ago(0s), 47, false};
  EXPECT_EQ(heartRatePlot(samples, frame, zone),
            "  bpm\n"
            "  100 +             **************\n"
            "      |            *\n"
            "      |           *\n"
            "      |           *\n"
            "      |          *\n"
            "      |          *\n"
            "   78 +         *\n"
            "      |         *\n"
            "      |        *\n"
            "      |        *\n"
            "      |       *\n"
            "   60 +********\n"
            "      +----------------------------------------\n"
            "       10:00            10:30             11:00\n");

  samples.clear();
  for (const auto minute : {60min, 59min, 58min, 2min, 1min, 0min}) {
    add(minute, 70);
  }
  frame.isUtf8 = true;
  const std::string plot = heartRatePlot(samples, frame, zone);
  std::string bottom = plot.substr(plot.find("   70 "));
  bottom = bottom.substr(0, bottom.find('\n'));
  EXPECT_EQ(bottom, "   70 ┤⣀⣀                                    ⣀⣀");
  EXPECT_EQ(heartRatePlot({}, frame, zone), "No heart rate was measured in that time.\n");

  store(5min, 66);
  expectPart(outputOf("heart-rate --plot --since 10m"), "└");
  console.isWide = false;
  EXPECT_EQ(run("heart-rate --plot --since 10m"), done);
  for (const char character : console.output) {
    EXPECT_GE(character, 0) << "not ASCII";
  }
}

TEST(TimeTextTest, MomentsAreReadAsPeopleWriteThem) {
  const platform::FixedTimeZone zone(-5400);
  const platform::Date now{std::chrono::sys_days(std::chrono::year(2026) / 3 / 1) + 1h};
  const std::pair<const char*, const char*> kCases[] = {
      {"now", "2026-02-28 23:30:00"},
      {"90m", "2026-02-28 22:00:00"},
      {"2h", "2026-02-28 21:30:00"},
      {"3d", "2026-02-25 23:30:00"},
      {"1w", "2026-02-21 23:30:00"},
      {"today", "2026-02-28 00:00:00"},
      {"yesterday", "2026-02-27 00:00:00"},
      {"2026-11-20", "2026-11-20 00:00:00"},
      {"2026-11-20 14:05", "2026-11-20 14:05:00"},
      {"2026-11-20T14:05:59", "2026-11-20 14:05:59"},
      {"2024-02-29", "2024-02-29 00:00:00"},
  };
  for (const auto& [text, expected] : kCases) {
    const auto moment = momentFromText(text, now, zone);
    ASSERT_TRUE(moment) << text;
    EXPECT_EQ(localTime(*moment, zone), expected) << text;
  }
  for (const char* text : {"2026-02-29", "2026-11-20 24:00", "2026-11-20 14:60", "2026-11-20 14",
                           "2026-11-20 14:05:", "2026-11-20x", "2026-1-20", "2026-11--1", "-2h",
                           "h", "99999999999999999999d", ""}) {
    EXPECT_FALSE(momentFromText(text, now, zone)) << text;
  }
  EXPECT_EQ(internetTime(now, zone), "2026-02-28T23:30:00-01:30");
}

}  // namespace
}  // namespace wrixel2::ctl
