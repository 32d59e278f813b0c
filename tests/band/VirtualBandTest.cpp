#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "band/BandProfile.h"
#include "band/BandRecorder.h"
#include "band/VirtualBand.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/band/RecordedExchanges.h"

namespace wrixel2::band {
namespace {

using namespace std::chrono_literals;
using platform::Bytes;
using platform::ByteView;
using platform::UUID;
using platform::WriteType;

/// A radio that brings nothing anywhere but keeps what it was given.
class FakeRadio final : public BandRadio {
 public:
  std::vector<std::pair<UUID, Bytes>> notifications;
  std::vector<long> ends;
  int presenceChanges = 0;

  void notify(const UUID& service, const UUID& characteristic, const Bytes& value) override {
    EXPECT_NE(findCharacteristic(service, characteristic), nullptr);
    notifications.emplace_back(characteristic, value);
  }
  platform::ErrorOrNone endLink(long code) override {
    ends.push_back(code);
    return std::nullopt;
  }
  void presenceChanged() override { ++presenceChanges; }

  /// The values notified on the characteristic since the last call.
  std::vector<Bytes> take(const UUID& characteristic) {
    std::vector<Bytes> values;
    for (auto& [from, value] : std::exchange(notifications, {})) {
      if (from == characteristic) {
        values.push_back(std::move(value));
      }
    }
    return values;
  }
};

const Bytes kAccepted{0x10, 0x03, 0x01};
const Bytes kRefused{0x10, 0x03, 0x04};

class VirtualBandTest : public ::testing::Test {
 protected:
  VirtualBandTest() { band_.setRadio(&radio_); }

  long write(const UUID& service, const UUID& characteristic, const Bytes& value,
             WriteType type = WriteType::withResponse) {
    return band_.write(service, characteristic, value, type).value_or(platform::Error{}).code;
  }
  long writeAuth(const Bytes& value) { return write(kAuthService, kAuthInfo, value); }
  /// The random number that the band sends when it is asked for one.
  Bytes askForNumber() {
    EXPECT_EQ(writeAuth({0x02, 0x00}), 0);
    const auto numbers = radio_.take(kAuthInfo);
    EXPECT_EQ(numbers.size(), 1U);
    return numbers.at(0);
  }
  long subscribe(const UUID& service, const UUID& characteristic) {
    return band_.subscribe(service, characteristic, true).value_or(platform::Error{}).code;
  }

  void link() {
    band_.linkUp();
    EXPECT_EQ(subscribe(kAuthService, kAuthInfo), 0);
  }

  /// What a host sends that knows the exchange's key. The band is asked for the number first.
  Bytes answerOf(const RecordedExchange& exchange) {
    sendNumberOf(exchange, band_);
    EXPECT_EQ(askForNumber(), bytesOf("100201" + std::string(exchange.number)));
    return bytesOf("0300" + std::string(exchange.answer));
  }
  /// One exchange; the verdict.
  Bytes authenticate(const RecordedExchange& exchange = recordedExchanges().front()) {
    EXPECT_EQ(writeAuth(answerOf(exchange)), 0);
    return radio_.take(kAuthInfo).at(0);
  }

  void linkAndAuthenticate() {
    link();
    ASSERT_EQ(authenticate(), kAccepted);
  }

  platform::simulated::SimulatedPlatform platform_;
  FakeRadio radio_;
  VirtualBand band_{platform_.handle()};
  BandRecorder recorder_{band_};
};

TEST_F(VirtualBandTest, AuthenticatesAHostThatKnowsTheKey) {
  link();
  const auto first = askForNumber();
  EXPECT_EQ(first.size(), 19U);
  EXPECT_NE(askForNumber(), first) << "taken from the system anew";
  for (const auto& exchange : recordedExchanges()) {
    SCOPED_TRACE(exchange.key);
    band_.setPairingKey(exchange.key);
    band_.linkDown();
    link();
    EXPECT_EQ(band_.link(), BandLink::connected);  // every link anew
    EXPECT_EQ(authenticate(exchange), kAccepted);
    EXPECT_EQ(band_.link(), BandLink::authenticated);
  }
}

TEST_F(VirtualBandTest, RefusesAWrongKeyAnOldNumberAndWhomItWasToldToRefuse) {
  link();
  EXPECT_EQ(authenticate(recordedExchanges()[3]), kRefused) << "another key";
  EXPECT_EQ(writeAuth(Bytes(18, 0x03)), att_error::valueNotAllowed);

  const auto answer = answerOf(recordedExchanges()[1]);
  band_.refuseAuthentication(2);
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(authenticate(), kRefused);
    EXPECT_EQ(band_.link(), BandLink::connected);
  }
  askForNumber();
  writeAuth(answer);  // of a number that is no longer asked for
  EXPECT_EQ(radio_.take(kAuthInfo), std::vector<Bytes>{kRefused});
  const auto onThisLink = answerOf(recordedExchanges()[1]);
  band_.linkDown();
  link();
  writeAuth(onThisLink);
  EXPECT_EQ(radio_.take(kAuthInfo), std::vector<Bytes>{kRefused});

  const auto right = answerOf(recordedExchanges().front());
  writeAuth(right);
  writeAuth(right);  // good for one time only
  EXPECT_EQ(radio_.take(kAuthInfo), (std::vector<Bytes>{kAccepted, kRefused}));

  band_.setPairingKey("a new key");
  EXPECT_EQ(authenticate(), kRefused);
}

TEST_F(VirtualBandTest, DoesNothingElseBeforeAuthentication) {
  link();
  for (const auto& service : bandServices()) {
    for (const auto& characteristic : service.characteristics) {
      if (characteristic.uuid == kAuthInfo) {
        continue;
      }
      const auto& uuid = characteristic.uuid;
      EXPECT_EQ(band_.read(service.uuid, uuid).error().code, att_error::insufficientAuthentication);
      EXPECT_EQ(subscribe(service.uuid, uuid), att_error::insufficientAuthentication);
      EXPECT_EQ(write(service.uuid, uuid, {0x00}), att_error::insufficientAuthentication);
    }
  }
  EXPECT_TRUE(recorder_.displays().empty());
  EXPECT_EQ(recorder_.writes().size(), 15U);  // it tells of what it refuses
  EXPECT_EQ(band_.read(kAuthService, kAuthInfo).error().code, att_error::readNotPermitted);
  EXPECT_EQ(band_.read(kControlService, kAuthInfo).error().code, att_error::invalidHandle);
}

/// Where a write goes.
struct Target {
  UUID service;
  UUID characteristic;
};
const Target kAuth{kAuthService, kAuthInfo};
const Target kNew{kAlertNotificationService, kNewAlert};
const Target kLevel{kImmediateAlertService, kAlertLevel};
const Target kHeart{kHeartRateService, kHeartRateControl};
const Target kParameters{kControlService, kConnectionParameters};

TEST_F(VirtualBandTest, RefusesMalformedWritesWithAnErrorAndALine) {
  linkAndAuthenticate();
  const long length = att_error::invalidAttributeValueLength;
  const long value = att_error::valueNotAllowed;
  const struct {
    const char* name;
    Target to;
    Bytes value;
    long code;
  } cases[] = {
      {"nothing to the authentication", kAuth, {}, length},
      {"half a number", kAuth, {3, 0, 1}, length},
      {"an unknown request", kAuth, {1, 0}, value},
      {"an alert without an icon", kNew, {}, length},
      {"half an icon", kNew, {5}, length},
      {"half a wide icon", kNew, {0xFA, 1}, length},
      {"a wide icon with text", kNew, {0xFA, 1, 2, 'x'}, length},
      {"too long an alert", kNew, Bytes(21, 'x'), length},
      {"half a pattern", kLevel, {0xFF, 1, 0, 1, 0}, length},
      {"no pattern", kLevel, {0xFE, 1, 0, 1, 0, 1}, value},
      {"an empty alert level", kLevel, {}, length},
      {"half a heart-rate command", kHeart, {0x15, 2}, length},
      {"another heart-rate command", kHeart, {0x15, 3, 1}, value},
      {"seven bytes of parameters", kParameters, Bytes(7, 1), length},
      {"a short time", {kControlService, kCurrentTime}, Bytes(10, 1), length},
      {"what is only read", {kControlService, kBatteryInfo}, {1}, att_error::writeNotPermitted},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    platform_.log.clear();
    recorder_.clear();
    EXPECT_EQ(write(test.to.service, test.to.characteristic, test.value), test.code);
    EXPECT_TRUE(platform_.log.contains(platform::LogLevel::warning, "Refused"));
    EXPECT_EQ(recorder_.writes().size(), 1U);
    EXPECT_TRUE(recorder_.displays().empty() && recorder_.vibrations().empty());
    EXPECT_FALSE(band_.isMeasuringHeartRate());
  }
  EXPECT_EQ(band_.link(), BandLink::authenticated);
}

TEST_F(VirtualBandTest, ShowsIconsAndTexts) {
  linkAndAuthenticate();
  const Bytes cutInside{3,   1,   'a', 'a', 'a', 'a', 'a', 'a', 'a',  'a',
                        'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a', 0xE2, 0x82};
  const struct {
    const char* name;
    Target to;
    Bytes value;
    BandRecorder::Display shown;
  } cases[] = {
      {"a wide icon", kNew, {0xFA, 1, 6}, {"", {0xFA, 1, 6}}},
      {"an icon filled up", kNew, {3, 0, 0}, {"", {3, 0}}},
      {"a bare icon", kNew, {5, 1}, {"", {5, 1}}},
      {"an icon with text", kNew, {5, 1, 'A', 'n', 'n', 'a'}, {"Anna", {5, 1}}},
      {"a text that ends inside a character", kNew, cutInside, {"aaaaaaaaaaaaaaaa", {3, 1}}},
      {"one byte", kLevel, {2}, {"", {2}}},
      {"nothing any more", kLevel, {0}, {"", {0}}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    recorder_.clear();
    EXPECT_EQ(
        write(test.to.service, test.to.characteristic, test.value, WriteType::withoutResponse), 0);
    EXPECT_EQ(recorder_.displays(), std::vector{test.shown});
    EXPECT_EQ(recorder_.writes(),
              (std::vector<BandRecorder::Write>{{test.to.service, test.to.characteristic,
                                                 test.value, WriteType::withoutResponse}}));
  }
}

TEST_F(VirtualBandTest, VibratesInThePatternItIsSent) {
  linkAndAuthenticate();
  EXPECT_EQ(write(kImmediateAlertService, kAlertLevel, {0xFF, 0x4B, 0x00, 0xDC, 0x05, 0x03}), 0);
  EXPECT_EQ(write(kImmediateAlertService, kAlertLevel, {0xFF, 0, 0, 0, 0, 0}), 0);
  EXPECT_EQ(recorder_.vibrations(), (std::vector<BandRecorder::Vibration>{{75, 1500, 3}, {}}));
  EXPECT_TRUE(recorder_.displays().empty());
}

TEST_F(VirtualBandTest, MeasuresTheHeartOnceAndReportsTheRateOfThatMoment) {
  linkAndAuthenticate();
  ASSERT_EQ(subscribe(kHeartRateService, kHeartRateMeasurement), 0);
  write(kHeartRateService, kHeartRateControl, {0x15, 0x02, 0x01});
  platform_.runLoop.runFor(5s);
  write(kHeartRateService, kHeartRateControl, {0x15, 0x02, 0x01});  // begins anew
  band_.setHeartRate(91);
  platform_.runLoop.runFor(8s - 1us);
  EXPECT_TRUE(radio_.notifications.empty());
  platform_.runLoop.runFor(1us);
  EXPECT_EQ(radio_.take(kHeartRateMeasurement), (std::vector<Bytes>{{0x00, 91}}));
  EXPECT_FALSE(band_.isMeasuringHeartRate());
  platform_.runLoop.runFor(1h);
  EXPECT_TRUE(radio_.notifications.empty());
}

TEST_F(VirtualBandTest, AContinuousMeasurementEndsWithASingleOneOrTheLink) {
  for (const bool byLink : {false, true}) {
    SCOPED_TRACE(byLink ? "by the end of the link" : "by a single measurement");
    linkAndAuthenticate();
    ASSERT_EQ(subscribe(kHeartRateService, kHeartRateMeasurement), 0);
    band_.setHeartRate(0);
    write(kHeartRateService, kHeartRateControl, {0x15, 0x01, 0x01});
    platform_.runLoop.runFor(15s);
    EXPECT_EQ(radio_.take(kHeartRateMeasurement).size(), 3U);
    if (byLink) {
      band_.linkDown();
      linkAndAuthenticate();
      ASSERT_EQ(subscribe(kHeartRateService, kHeartRateMeasurement), 0);
    } else {
      write(kHeartRateService, kHeartRateControl, {0x15, 0x02, 0x01});
    }
    platform_.runLoop.runFor(1h);
    EXPECT_EQ(radio_.take(kHeartRateMeasurement),
              byLink ? std::vector<Bytes>{} : (std::vector<Bytes>{{0x00, 0x00}}));
    EXPECT_EQ(platform_.runLoop.pendingTimers(), 0U);
  }
}

TEST_F(VirtualBandTest, ItsValuesHaveTheirLayouts) {
  linkAndAuthenticate();
  band_.setSteps(10000);
  band_.setDistance(100);
  band_.setCalories(0x01020304);
  ASSERT_EQ(band_.setBatteryLevel(55), std::nullopt);
  EXPECT_EQ(*band_.read(kControlService, kRealtimeSteps),
            (Bytes{0x0C, 0x10, 0x27, 0, 0, 100, 0, 0, 0, 4, 3, 2, 1}));
  EXPECT_EQ(*band_.read(kControlService, kBatteryInfo),
            (Bytes{0x0F, 55,   0,                   //
                   0xEA, 0x07, 2, 28, 12, 0, 0, 0,  // last charge
                   0xEA, 0x07, 2, 21, 12, 0, 0, 0,  // last full charge
                   25}));
  EXPECT_EQ(*band_.read(kControlService, kConnectionParameters),
            (Bytes{0x18, 0, 0x28, 0, 0, 0, 0xF4, 0x01}));
  EXPECT_EQ(*band_.read(kControlService, kCurrentTime), band_.currentTime());
  const Bytes midnight{0xEA, 7, 3, 2, 0, 0, 0, 2, 0, 0, 0};
  EXPECT_EQ(write(kControlService, kCurrentTime, midnight), 0);
  EXPECT_EQ(band_.currentTime(), midnight);
}

TEST_F(VirtualBandTest, NotifiesWhatIsSubscribedAndNothingElse) {
  const struct {
    const char* name;
    UUID characteristic;
    std::size_t length;
    void (*change)(VirtualBand& band);
  } cases[] = {
      {"steps", kRealtimeSteps, 13, [](VirtualBand& band) { band.setSteps(1); }},
      {"distance", kRealtimeSteps, 13, [](VirtualBand& band) { band.setDistance(1); }},
      {"calories", kRealtimeSteps, 13, [](VirtualBand& band) { band.setCalories(1); }},
      {"battery", kBatteryInfo, 20,
       [](VirtualBand& band) { static_cast<void>(band.setBatteryLevel(1)); }},
      {"button", kButtonPress, 1, [](VirtualBand& band) { band.pressButton(); }},
      {"connection parameters", kConnectionParameters, 8,
       [](VirtualBand& band) { band.setConnectionParameters({0x33, 0, 0x33}); }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    linkAndAuthenticate();
    band_.setConnectionParameters({});
    test.change(band_);
    EXPECT_TRUE(radio_.notifications.empty());
    band_.setConnectionParameters({});
    ASSERT_EQ(subscribe(kControlService, test.characteristic), 0);
    test.change(band_);
    const auto values = radio_.take(test.characteristic);
    ASSERT_EQ(values.size(), 1U);
    EXPECT_EQ(values[0].size(), test.length);
    ASSERT_EQ(band_.subscribe(kControlService, test.characteristic, false), std::nullopt);
    test.change(band_);
    ASSERT_EQ(subscribe(kControlService, test.characteristic), 0);
    band_.linkDown();
    test.change(band_);
    EXPECT_TRUE(radio_.notifications.empty());
  }
  EXPECT_EQ(subscribe(kControlService, kCurrentTime), att_error::invalidHandle);
  linkAndAuthenticate();
  EXPECT_EQ(subscribe(kControlService, kCurrentTime), att_error::requestNotSupported);

  // Parameters that change nothing are not notified.
  ASSERT_EQ(subscribe(kControlService, kConnectionParameters), 0);
  const Bytes low{0x27, 0, 0x31, 0, 0, 0, 0xF4, 0x01};
  write(kControlService, kConnectionParameters, low);
  write(kControlService, kConnectionParameters, low);
  EXPECT_EQ(radio_.take(kConnectionParameters), std::vector<Bytes>{low});
}

TEST_F(VirtualBandTest, EndsItsLinkOnlyInTheTwoWaysThereAre) {
  EXPECT_TRUE(band_.drop(7).has_value());  // no link
  band_.linkUp();
  EXPECT_TRUE(band_.drop(5).has_value());
  EXPECT_EQ(band_.drop(6), std::nullopt);
  EXPECT_EQ(band_.drop(7), std::nullopt);
  EXPECT_EQ(radio_.ends, (std::vector<long>{6, 7}));
}

TEST_F(VirtualBandTest, TellsTheRadioWhenItIsToBeSeen) {
  EXPECT_TRUE(band_.isAdvertising());
  band_.setIsInRange(false);
  band_.setIsInRange(false);
  EXPECT_FALSE(band_.isAdvertising());
  band_.setIsInRange(true);
  band_.linkUp();
  EXPECT_FALSE(band_.isAdvertising());
  EXPECT_EQ(radio_.presenceChanges, 3);
  EXPECT_EQ(recorder_.changes(),
            (std::vector{BandProperty::isInRange, BandProperty::isInRange, BandProperty::link}));
  EXPECT_TRUE(band_.setBatteryLevel(101).has_value());
}

TEST_F(VirtualBandTest, AnObserverMayLeaveAndTakeOthersWithIt) {
  struct Leaver final : BandObserver {
    explicit Leaver(VirtualBand& observed) : band(observed) { band.addObserver(*this); }
    void bandDidChange(BandProperty) override {
      ++calls;
      band.removeObserver(*this);
      other.reset();
    }
    VirtualBand& band;
    std::unique_ptr<BandRecorder> other;
    int calls = 0;
  } leaver(band_);
  leaver.other = std::make_unique<BandRecorder>(band_);
  band_.setHeartRate(1);
  band_.setHeartRate(2);
  EXPECT_EQ(leaver.calls, 1);
  EXPECT_EQ(recorder_.changes().size(), 2U);
}

TEST_F(VirtualBandTest, AddressesAreSixHexadecimalFields) {
  EXPECT_EQ(VirtualBand(platform_.handle(), "C8:0F:10:AA:BB:0D").address(), "c8:0f:10:aa:bb:0d");
  for (const char* const bad : {"", "c8:0f:10:aa:bb", "c8-0f-10-aa-bb-0c", "c8:0f:10:aa:bb:0g",
                                "c8:0f:10:aa:bb:0c:", "c80f:10:aa:bb:0c1"}) {
    EXPECT_FALSE(VirtualBand::isAddress(bad)) << bad;
  }
}

}  // namespace
}  // namespace wrixel2::band
