#include <algorithm>

#include <fmt/format.h>

#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/MBAuthService.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "tests/band/RecordedExchanges.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::Bytes;
using platform::LogLevel;
using Lines = std::vector<std::string>;

class AuthServiceTest : public SessionFixture {
 protected:
  void notify(const Bytes& value) {
    const auto characteristic = authInfo();
    characteristic->setValue(value);
    service().notifyCharacteristicHandler(characteristic, std::nullopt);
    settle();
  }
  mbservices::MBAuthService& service() { return peripheral()->authService(); }
  std::shared_ptr<bleobjects::YMSCBCharacteristic> authInfo() {
    return service()[mbservices::MB_CHAR_AUTH_INFO];
  }
  /// How often the band was asked for a random number.
  long requests() const {
    const auto messages = writesTo("00000009");
    return std::count(messages.begin(), messages.end(), "0200");
  }
  /// A random-number message; the header is arbitrary.
  static Bytes challenge(std::uint8_t fill) { return Bytes(19, fill); }
};
const Bytes kAccepted{0x10, 0x03, 0x01};
const Bytes kRefused{0x10, 0x03, 0x04};

TEST_F(AuthServiceTest, ProvesTheKeyOfTheProviderAsItIsNow) {
  connectBand();
  for (const auto& exchange : band::recordedExchanges()) {
    SCOPED_TRACE(exchange.key);
    keys.key = exchange.key;
    band->setPairingKey(exchange.key);
    band::sendNumberOf(exchange, *band);
    forgetRecords();
    service().resetAuthorization();
    service().authorizeConnection([](const platform::ErrorOrNone& error) { EXPECT_FALSE(error); });
    settle();
    EXPECT_EQ(writesTo("00000009"), (Lines{"0200", "0300" + std::string(exchange.answer)}));
    EXPECT_TRUE(service().isAuthorized());
  }
}

TEST_F(AuthServiceTest, SixRefusalsMakeFiveRetriesFiveSecondsApart) {
  band->refuseAuthentication(100);
  makeManager();
  runFor(Milliseconds(2100));
  for (int retry = 0; retry < 5; ++retry) {
    SCOPED_TRACE(retry);
    EXPECT_EQ(
        countOfLog(LogLevel::warning, fmt::format("Authentication failed retry {} in 5s!", retry)),
        1U);
    runFor(Milliseconds(4999));
    EXPECT_EQ(requests(), retry + 1);
    runFor(Milliseconds(1));
  }
  EXPECT_TRUE(hasLog(LogLevel::warning, "Authentication failed retry 5 in 5s!"));
  EXPECT_EQ(requests(), 6);
  runFor(Seconds(18));
  EXPECT_EQ(requests(), 6) << "no seventh";
  EXPECT_FALSE(peripheral()->isInitialized());
  EXPECT_EQ(manager->state(), SessionState::connecting);
}

TEST_F(AuthServiceTest, ARetryThatSucceedsGoesOnWithTheConnection) {
  band->refuseAuthentication(2);
  makeManager();
  runFor(Seconds(12));
  EXPECT_FALSE(peripheral()->isInitialized());
  runFor(Milliseconds(100));
  EXPECT_TRUE(peripheral()->isInitialized());
  // The success has cleared the count: the next refusal is the first again.
  forgetRecords();
  service().resetAuthorization();
  notify(kRefused);
  EXPECT_TRUE(hasLog(LogLevel::warning, "Authentication failed retry 0 in 5s!"));
}

TEST_F(AuthServiceTest, WhatElseTheBandMaySay) {
  connectBand();
  int completions = 0;
  const auto begin = [&] {
    service().resetAuthorization();
    service().authorizeConnection([&](const platform::ErrorOrNone& error) {
      EXPECT_FALSE(error);
      ++completions;
    });
    // Not settled: what the band itself answers does not come in between.
    forgetRecords();
  };

  begin();
  notify(kAccepted);
  EXPECT_EQ(completions, 1);
  EXPECT_TRUE(service().isAuthorized());
  forgetRecords();
  notify(kAccepted);
  EXPECT_EQ(warnings(), Lines{"Trying to double authenticate"});
  EXPECT_EQ(completions, 1);

  service().resetAuthorization();
  forgetRecords();
  notify(challenge(1));
  notify(challenge(1));
  EXPECT_EQ(writesTo("00000009").size(), 1U) << "a repeated message is answered once";
  EXPECT_TRUE(hasLog(LogLevel::warning,
                     fmt::format("Already got cipher {}!", platform::description(challenge(1)))));
  notify(challenge(2));
  EXPECT_EQ(writesTo("00000009").size(), 2U);

  for (const Bytes& unknown : {Bytes{0x10, 0x03, 0x02}, Bytes{}, Bytes(18, 0), Bytes(20, 0)}) {
    service().resetAuthorization();
    forgetRecords();
    notify(unknown);
    EXPECT_EQ(warnings(), Lines{"Unknown response: " + platform::description(unknown)});
    EXPECT_EQ(writes(), Lines{});
  }
}

TEST_F(AuthServiceTest, AnErrorIsNotRetriedInSpiteOfTheWords) {
  connectBand();
  service().resetAuthorization();
  service().notifyCharacteristicHandler(authInfo(), platform::Error{6, "gone"});
  runFor(Seconds(10));
  EXPECT_EQ(warnings(), Lines{"Error during notify handling. gone (code 6) Let's retry"});
  EXPECT_EQ(writes(), Lines{});
}

}  // namespace
}  // namespace wrixel2::mbble
