#include <fmt/format.h>

#include "protocol/MBBLE/Services/MBAlertService.h"
#include "protocol/MBBLE/Services/MBAncsAlertService.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using Lines = std::vector<std::string>;

class AlertServicesTest : public SessionFixture {
 protected:
  AlertServicesTest() { connectBand(); }
};

/// The three bytes of each icon as the band wants them, from icon 0 on; beyond the last, icon 1's.
constexpr std::string_view kIconBytes[] = {
    "010000", "030000", "fa01ff", "fa0103", "fe0000", "010100", "fa0105", "fa0102",
    "fa0101", "050100", "fa0106", "fa0109", "fa0104", "fa0100", "fa0108", "fa0107",
    "fa011b", "fa0119", "fa0117", "fa010c", "fa0115", "fa0116", "fa011c", "fa011d",
    "fa011e", "fa0118", "010000", "fa010a", "020000", "030100", "000000", "010000"};

TEST_F(AlertServicesTest, EveryIconOnBothServices) {
  for (std::uint64_t icon = 0; icon < std::size(kIconBytes); ++icon) {
    SCOPED_TRACE(icon);
    const std::string bytes(kIconBytes[icon]);
    forgetRecords();
    peripheral()->ancsAlertService().doSendNotificationWithMode(alert(1, icon), 0,
                                                                [](const auto&) {});
    settle();
    EXPECT_EQ(writes(), Lines{"0 2a46 " + bytes + " ack"});

    forgetRecords();
    peripheral()->alertService().doSendNotificationWithMode(alert(2, icon), 0);
    runFor(Seconds(1));
    const std::string pattern = "2a06 fff401f40102";
    if (icon == 1) {
      EXPECT_EQ(writes(), Lines{"0 " + pattern}) << "only vibrates";
    } else if (icon == 28) {
      EXPECT_EQ(writes(), Lines{"0 2a06 02"}) << "only shows";
    } else {
      EXPECT_EQ(writes(), (Lines{"0 2a06 " + bytes.substr(0, 2), "150 " + pattern}));
    }
  }
}

TEST_F(AlertServicesTest, EveryPatternAndTheCountsLowByte) {
  constexpr std::pair<std::uint64_t, std::string_view> kPatterns[] = {
      {0, "f401f401"}, {1, "fa00fa00"}, {2, "96009600"}, {3, "5e016400"}, {4, "32003200"},
      {5, "e8030500"}, {6, "2c01c800"}, {7, "4b00dc05"}, {8, "64006400"}, {1000, "64006400"}};
  for (const auto& [pattern, durations] : kPatterns) {
    SCOPED_TRACE(pattern);
    forgetRecords();
    peripheral()->alertService().doSendNotificationWithMode(alert(259, 1, pattern), 0);
    settle();
    EXPECT_EQ(writes(), Lines{fmt::format("0 2a06 ff{}03", durations)});
  }
}

TEST_F(AlertServicesTest, TextsGoWithTwoIconsAndAreCutAtEighteenBytes) {
  struct Case {
    std::uint64_t icon;
    std::optional<std::string> text;
    std::string_view bytes;
  };
  const Case cases[] = {
      {9, "Anna", "0501416e6e61"},
      {29, "Anna", "0301416e6e61"},
      {9, std::nullopt, "050100"},
      {29, std::nullopt, "030100"},
      {9, "", "0501"},
      // Any other icon leaves the text for the alert that follows it.
      {10, "Anna", "fa0106"},
      {9, "ABCDEFGHIJKLMNOPQRSTUVWXY", "05014142434445464748494a4b4c4d4e4f505152"},
      // Cut inside a character: 17 letters, then the first byte of an umlaut.
      {9, "ABCDEFGHIJKLMNOPQ\u00fcber", "05014142434445464748494a4b4c4d4e4f5051c3"}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.text.value_or("none"));
    forgetRecords();
    peripheral()->ancsAlertService().doSendNotificationWithMode(alert(1, test.icon, 0, test.text),
                                                                0, [](const auto&) {});
    settle();
    EXPECT_EQ(writes(), Lines{fmt::format("0 2a46 {} ack", test.bytes)});
  }
}

TEST_F(AlertServicesTest, AfterTheDelayTheModeIsTakenAsItIsThenButTheTextAsItWas) {
  const auto mode = alert(5, 29, 0, "before");
  peripheral()->ancsAlertService().doSendNotificationWithMode(mode, 1.0F, [](const auto&) {});
  peripheral()->alertService().doSendNotificationWithMode(mode, 0.1F);
  mode->setText("after");
  runFor(Milliseconds(500));
  mode->setIconId(9);
  runFor(Milliseconds(499));
  EXPECT_EQ(writes(), (Lines{"100 2a06 03", "250 2a06 fff401f40105"}));
  runFor(Milliseconds(1));
  EXPECT_EQ(writesTo("2a46"), Lines{"05016265666f7265 ack"});
}

TEST_F(AlertServicesTest, StoppingWritesTwiceOnOneServiceAndNothingOnTheOther) {
  peripheral()->ancsAlertService().doStopVibrate();
  runFor(Seconds(1));
  EXPECT_EQ(writes(), Lines{});
  forgetRecords();
  peripheral()->alertService().doStopVibrate();
  runFor(Seconds(1));
  EXPECT_EQ(writes(), (Lines{"0 2a06 00", "50 2a06 ff0000000000"}));
}

TEST_F(AlertServicesTest, TheControlPointTakesAPayloadToo) {
  bool isAnswered = false;
  peripheral()->ancsAlertService().writeControlServiceWithWork(
      [](mbmodel::MBDataBuilder& builder) { builder.writeInt(0x0201, 2); },
      [&](const platform::ErrorOrNone& error) { isAnswered = !error; });
  settle();
  EXPECT_EQ(writes(), Lines{"0 2a44 0102 ack"});
  EXPECT_TRUE(isAnswered);
}

TEST_F(AlertServicesTest, WhatWaitsIsDroppedWithTheBand) {
  peripheral()->ancsAlertService().doSendNotificationWithMode(alert(1, 9), 1.0F,
                                                              [](const auto&) { FAIL(); });
  peripheral()->alertService().doSendNotificationWithMode(alert(1, 2), 0);
  runFor(Milliseconds(100));
  peripheral()->alertService().doStopVibrate();
  settle();
  manager.reset();
  runFor(Seconds(2));
  EXPECT_EQ(writes(), (Lines{"0 2a06 fa", "100 2a06 00"}));
}

}  // namespace
}  // namespace wrixel2::mbble
