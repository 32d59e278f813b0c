#include "band/VirtualBand.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include "band/BandProfile.h"
#include "band/BandText.h"
#include "platform/AES.h"
#include "platform/Assertion.h"

namespace wrixel2::band {

using platform::Bytes;
using platform::ByteView;
using platform::Error;
using platform::ErrorOrNone;
using platform::UUID;

namespace {

constexpr std::uint16_t kCompany = 0x0157;
constexpr std::size_t kAddressPosition = 20;
constexpr std::size_t kAddressFields = 6;

constexpr std::size_t kChallengeLength = 16;
constexpr std::size_t kLongestAlert = 20;
constexpr std::uint8_t kWideIcon = 0xFA;
constexpr std::uint8_t kVibration = 0xFF;

constexpr std::uint8_t kHeartRateCommand = 0x15;
constexpr std::uint8_t kContinuousMeasurement = 0x01;
constexpr std::uint8_t kSingleMeasurement = 0x02;

/// The system's random numbers.
std::optional<VirtualBand::RandomNumber> systemRandomNumber() {
  VirtualBand::RandomNumber number{};
  if (::getentropy(number.data(), number.size()) != 0) {
    return std::nullopt;
  }
  return number;
}

void appendLittleEndian(Bytes& bytes, std::uint32_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

unsigned littleEndian16(ByteView bytes, std::size_t at) {
  return static_cast<unsigned>(bytes[at]) | static_cast<unsigned>(bytes[at + 1]) << 8U;
}

Error invalidLength(std::string_view what) {
  return {att_error::invalidAttributeValueLength, fmt::format("{} of a wrong length", what)};
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](unsigned char character) {
    return static_cast<char>(std::tolower(character));
  });
  return lower;
}

}  // namespace

std::string_view nameOfLink(BandLink link) {
  switch (link) {
    case BandLink::disconnected:
      return "disconnected";
    case BandLink::connected:
      return "connected";
    case BandLink::authenticated:
      return "authenticated";
  }
  return "";
}

VirtualBand::VirtualBand(const platform::Platform& platform, std::string_view address,
                         std::string_view name)
    : runLoop_(platform.runLoop),
      logger_(platform.log, "VirtualBand"),
      address_(lowerCase(address)),
      name_(name),
      clock_(platform.clock, platform.localTimeZone),
      lastCharge_(clock_.shortDate(std::chrono::hours(24 * 2))),
      lastFullCharge_(clock_.shortDate(std::chrono::hours(24 * 9))) {
  if (!isAddress(address)) {
    platform::assertionFailure("A virtual band was made with a malformed address");
  }
}

bool VirtualBand::isAddress(std::string_view text) {
  constexpr std::size_t kFieldWidth = 3;
  if (text.size() != kAddressFields * kFieldWidth - 1) {
    return false;
  }
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isSeparator = at % kFieldWidth == kFieldWidth - 1;
    if (isSeparator ? text[at] != ':' : std::isxdigit(static_cast<unsigned char>(text[at])) == 0) {
      return false;
    }
  }
  return true;
}

BandAdvertisement VirtualBand::advertisement() const {
  BandAdvertisement advertisement;
  auto& data = advertisement.manufacturerData;
  data.assign(kAddressPosition, 0);
  data[0] = static_cast<std::uint8_t>(kCompany & 0xFFU);
  data[1] = static_cast<std::uint8_t>(kCompany >> 8U);
  const Bytes address = [this] {
    std::string digits = address_;
    std::erase(digits, ':');
    return platform::dataFromHexString(digits);
  }();
  data.insert(data.end(), address.begin(), address.end());
  advertisement.localName = name_;
  advertisement.services = {kControlService};
  return advertisement;
}

void VirtualBand::linkUp() {
  subscriptions_.clear();
  challenge_.reset();
  setLink(BandLink::connected);
  presenceChanged();
}

void VirtualBand::linkDown() {
  // Nobody is left to report to.
  heartRateTimer_.reset();
  subscriptions_.clear();
  challenge_.reset();
  setLink(BandLink::disconnected);
  presenceChanged();
}

ErrorOrNone VirtualBand::refusal(const BandCharacteristic* characteristic, unsigned property,
                                 long notPermitted) const {
  if (link_ == BandLink::disconnected || characteristic == nullptr) {
    return Error{att_error::invalidHandle, "There is no such characteristic"};
  }
  if (link_ != BandLink::authenticated && characteristic->uuid != kAuthInfo) {
    return Error{att_error::insufficientAuthentication, "The host has not authenticated itself"};
  }
  if ((characteristic->properties & property) == 0) {
    return Error{notPermitted, "The characteristic does not allow that"};
  }
  return std::nullopt;
}

platform::Result<Bytes> VirtualBand::read(const UUID& service, const UUID& characteristic) const {
  if (const auto refused = refusal(findCharacteristic(service, characteristic),
                                   characteristic_property::read, att_error::readNotPermitted)) {
    return *refused;
  }
  if (characteristic == kBatteryInfo) {
    return batteryValue();
  }
  if (characteristic == kRealtimeSteps) {
    return stepsValue();
  }
  if (characteristic == kConnectionParameters) {
    return connectionParameters_;
  }
  return clock_.bytes();
}

ErrorOrNone VirtualBand::write(const UUID& service, const UUID& characteristic, ByteView value,
                               platform::WriteType type) {
  const Bytes received(value.begin(), value.end());
  tellObservers([&](BandObserver& observer) {
    observer.bandDidReceiveWrite(service, characteristic, received, type);
  });
  const auto* const entry = findCharacteristic(service, characteristic);
  const unsigned property = type == platform::WriteType::withResponse
                                ? characteristic_property::write
                                : characteristic_property::writeWithoutResponse;
  auto error = refusal(entry, property, att_error::writeNotPermitted);
  if (!error) {
    error = act(characteristic, received);
  }
  if (error) {
    logger_.warning(fmt::format("Refused {} bytes for {}: {}", received.size(),
                                entry == nullptr ? characteristic.text() : entry->name,
                                platform::description(*error)));
  }
  return error;
}

ErrorOrNone VirtualBand::subscribe(const UUID& service, const UUID& characteristic, bool enabled) {
  if (auto refused = refusal(findCharacteristic(service, characteristic),
                             characteristic_property::notify, att_error::requestNotSupported)) {
    return refused;
  }
  if (enabled) {
    subscriptions_.insert(characteristic);
  } else {
    subscriptions_.erase(characteristic);
  }
  return std::nullopt;
}

ErrorOrNone VirtualBand::act(const UUID& characteristic, ByteView value) {
  if (characteristic == kAuthInfo) {
    return authenticate(value);
  }
  if (characteristic == kCurrentTime) {
    return clock_.set(value);
  }
  if (characteristic == kConnectionParameters) {
    if (value.size() != connectionParameters_.size()) {
      return invalidLength("Connection parameters");
    }
    std::array<std::uint8_t, 8> parameters{};
    std::ranges::copy(value, parameters.begin());
    setConnectionParameters(parameters);
    return std::nullopt;
  }
  if (characteristic == kNewAlert) {
    return showNewAlert(value);
  }
  if (characteristic == kAlertLevel) {
    return showAlertLevel(value);
  }
  if (characteristic == kHeartRateControl) {
    return controlHeartRate(value);
  }
  // The others take what they are given; nothing is known of their meaning.
  return std::nullopt;
}

ErrorOrNone VirtualBand::authenticate(ByteView value) {
  constexpr std::array<std::uint8_t, 2> kRequestRandomNumber{0x02, 0x00};
  constexpr std::array<std::uint8_t, 2> kSendEncryptedNumber{0x03, 0x00};
  if (value.size() != kRequestRandomNumber.size() &&
      value.size() != kSendEncryptedNumber.size() + kChallengeLength) {
    return invalidLength("An authentication message");
  }
  const ByteView command = value.first(kRequestRandomNumber.size());
  const ByteView payload = value.subspan(kRequestRandomNumber.size());
  if (payload.empty() && std::ranges::equal(command, kRequestRandomNumber)) {
    challenge_ = random_ ? random_() : systemRandomNumber();
    if (!challenge_) {
      return Error{att_error::unlikelyError, "The system has no random numbers"};
    }
    Bytes answer{0x10, 0x02, 0x01};
    answer.insert(answer.end(), challenge_->begin(), challenge_->end());
    notify(kAuthService, kAuthInfo, answer);
    return std::nullopt;
  }
  if (!payload.empty() && std::ranges::equal(command, kSendEncryptedNumber)) {
    answerRandomNumber(payload);
    return std::nullopt;
  }
  return Error{att_error::valueNotAllowed, "An unknown authentication message"};
}

void VirtualBand::answerRandomNumber(ByteView encrypted) {
  // A number is good for one answer, right or wrong.
  const auto challenge = std::exchange(challenge_, std::nullopt);
  bool isRight = false;
  if (refusals_ > 0) {
    --refusals_;
  } else if (challenge) {
    const auto expected =
        platform::AES128EncryptedDataWithKey(*challenge, platform::md5(pairingKey_), logger_.log());
    isRight = expected && std::ranges::equal(*expected, encrypted);
  }
  constexpr std::uint8_t kAuthenticated = 0x01;
  constexpr std::uint8_t kWrong = 0x04;
  notify(kAuthService, kAuthInfo, {0x10, 0x03, isRight ? kAuthenticated : kWrong});
  setLink(isRight ? BandLink::authenticated : BandLink::connected);
}

ErrorOrNone VirtualBand::showNewAlert(ByteView value) {
  constexpr std::size_t kWideIconLength = 3;
  constexpr std::size_t kTextIconLength = 2;
  const bool isWide = !value.empty() && value[0] == kWideIcon;
  if (isWide ? value.size() != kWideIconLength
             : value.size() < kTextIconLength || value.size() > kLongestAlert) {
    return invalidLength("An alert");
  }
  const std::size_t iconLength = isWide ? kWideIconLength : kTextIconLength;
  const std::string text = displayedText(value.subspan(iconLength));
  tellObservers(
      [&](BandObserver& observer) { observer.bandDidDisplay(text, value.first(iconLength)); });
  return std::nullopt;
}

ErrorOrNone VirtualBand::showAlertLevel(ByteView value) {
  constexpr std::size_t kPatternLength = 6;
  if (value.size() == 1) {
    tellObservers([&](BandObserver& observer) { observer.bandDidDisplay({}, value); });
    return std::nullopt;
  }
  if (value.size() != kPatternLength) {
    return invalidLength("An alert level");
  }
  if (value[0] != kVibration) {
    return Error{att_error::valueNotAllowed, "An unknown alert level"};
  }
  const unsigned on = littleEndian16(value, 1);
  const unsigned off = littleEndian16(value, 3);
  const unsigned count = value[5];
  tellObservers([&](BandObserver& observer) { observer.bandDidVibrate(on, off, count); });
  return std::nullopt;
}

ErrorOrNone VirtualBand::controlHeartRate(ByteView value) {
  constexpr std::size_t kCommandLength = 3;
  if (value.size() != kCommandLength) {
    return invalidLength("A heart-rate command");
  }
  if (value[0] != kHeartRateCommand || value[2] != 0x01 ||
      (value[1] != kContinuousMeasurement && value[1] != kSingleMeasurement)) {
    return Error{att_error::valueNotAllowed, "An unknown heart-rate command"};
  }
  const bool isContinuous = value[1] == kContinuousMeasurement;
  // One sensor: what is asked for last takes the place of what is running.
  heartRateTimer_ = runLoop_.scheduledTimer(
      isContinuous ? kContinuousHeartRateInterval : kHeartRateMeasurementTime, isContinuous,
      [this, isContinuous] {
        if (!isContinuous) {
          heartRateTimer_.reset();
        }
        notify(kHeartRateService, kHeartRateMeasurement, {0x00, heartRate_});
      });
  return std::nullopt;
}

Bytes VirtualBand::batteryValue() const {
  constexpr std::uint8_t kHeader = 0x0F;
  constexpr std::uint8_t kNotCharging = 0x00;
  constexpr std::uint8_t kLevelAtLastCharge = 25;
  Bytes value{kHeader, batteryLevel_, kNotCharging};
  value.insert(value.end(), lastCharge_.begin(), lastCharge_.end());
  value.insert(value.end(), lastFullCharge_.begin(), lastFullCharge_.end());
  value.push_back(kLevelAtLastCharge);
  return value;
}

Bytes VirtualBand::stepsValue() const {
  constexpr std::uint8_t kHeader = 0x0C;
  Bytes value{kHeader};
  appendLittleEndian(value, steps_);
  appendLittleEndian(value, distance_);
  appendLittleEndian(value, calories_);
  return value;
}

void VirtualBand::setPairingKey(std::string_view key) {
  pairingKey_ = key;
  didChange(BandProperty::pairingKey);
}

ErrorOrNone VirtualBand::setBatteryLevel(unsigned level) {
  if (level > 100) {
    return Error{att_error::valueNotAllowed, "A battery has at most 100 per cent"};
  }
  batteryLevel_ = static_cast<std::uint8_t>(level);
  notify(kControlService, kBatteryInfo, batteryValue());
  didChange(BandProperty::batteryLevel);
  return std::nullopt;
}

void VirtualBand::setSteps(std::uint32_t steps) {
  steps_ = steps;
  notify(kControlService, kRealtimeSteps, stepsValue());
  didChange(BandProperty::steps);
}

void VirtualBand::setDistance(std::uint32_t distance) {
  distance_ = distance;
  notify(kControlService, kRealtimeSteps, stepsValue());
  didChange(BandProperty::distance);
}

void VirtualBand::setCalories(std::uint32_t calories) {
  calories_ = calories;
  notify(kControlService, kRealtimeSteps, stepsValue());
  didChange(BandProperty::calories);
}

void VirtualBand::setHeartRate(std::uint8_t rate) {
  heartRate_ = rate;
  didChange(BandProperty::heartRate);
}

void VirtualBand::setConnectionParameters(const std::array<std::uint8_t, 8>& parameters) {
  Bytes changed(parameters.begin(), parameters.end());
  if (changed != connectionParameters_) {
    connectionParameters_ = std::move(changed);
    notify(kControlService, kConnectionParameters, connectionParameters_);
  }
}

void VirtualBand::setIsInRange(bool isInRange) {
  if (isInRange == isInRange_) {
    return;
  }
  isInRange_ = isInRange;
  didChange(BandProperty::isInRange);
  presenceChanged();
}

void VirtualBand::pressButton() { notify(kControlService, kButtonPress, {0x01}); }

ErrorOrNone VirtualBand::drop(long code) {
  if (code != platform::bluetooth_error::peripheralDisconnected &&
      code != platform::bluetooth_error::connectionTimeout) {
    return Error{code, "A link ends with 7 (the band disconnects) or 6 (it times out)"};
  }
  if (link_ == BandLink::disconnected || radio_ == nullptr) {
    return Error{platform::bluetooth_error::notConnected, "The band has no link"};
  }
  return radio_->endLink(code);
}

void VirtualBand::notify(const UUID& service, const UUID& characteristic, const Bytes& value) {
  if (radio_ != nullptr && link_ != BandLink::disconnected &&
      subscriptions_.contains(characteristic)) {
    radio_->notify(service, characteristic, value);
  }
}

void VirtualBand::setLink(BandLink link) {
  if (link != link_) {
    link_ = link;
    didChange(BandProperty::link);
  }
}

void VirtualBand::didChange(BandProperty property) {
  tellObservers([property](BandObserver& observer) { observer.bandDidChange(property); });
}

void VirtualBand::presenceChanged() {
  if (radio_ != nullptr) {
    radio_->presenceChanged();
  }
}

template <typename Call>
void VirtualBand::tellObservers(const Call& call) {
  const std::vector<BandObserver*> observers = observers_;
  for (BandObserver* const observer : observers) {
    if (std::ranges::find(observers_, observer) != observers_.end()) {
      call(*observer);
    }
  }
}

}  // namespace wrixel2::band
