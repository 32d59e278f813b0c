#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "band/BandClock.h"
#include "band/BandObserver.h"
#include "band/BandRadio.h"
#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/Log.h"
#include "platform/Peripheral.h"
#include "platform/Platform.h"
#include "platform/Result.h"
#include "platform/RunLoop.h"
#include "platform/UUID.h"

namespace wrixel2::band {

struct BandCharacteristic;

/// The pairing key that a new virtual band expects.
inline constexpr std::string_view kDefaultPairingKey = "0123456789abcdef0123456789abcdef";
inline constexpr std::string_view kDefaultAddress = "c8:0f:10:aa:bb:0c";
inline constexpr std::string_view kBandName = "MI Band 2";

/// A single measurement's result comes after this time, a continuous one's at this beat.
inline constexpr std::chrono::seconds kHeartRateMeasurementTime{8};
inline constexpr std::chrono::seconds kContinuousHeartRateInterval{5};

enum class BandLink : std::uint8_t { disconnected, connected, authenticated };

/// "disconnected", "connected" or "authenticated".
std::string_view nameOfLink(BandLink link);

/// What the band sends out while it has no link.
struct BandAdvertisement {
  std::uint8_t flags = 0x06;  ///< general discoverable, BR/EDR not supported
  /// The raw entry: company number 0x0157, little-endian, 18 bytes, then the address (20..25).
  platform::Bytes manufacturerData;
  std::string localName;
  std::vector<platform::UUID> services;
};

/// A band without a body: the peripheral's side of the protocol, for demonstrations and tests. It
/// knows only what its radio brings, and it is strict: nothing but the authentication works before
/// that is passed, and what is malformed is refused with an error of the attribute protocol.
///
/// Values out: battery 20 bytes, steps 13 bytes, connection parameters 8 bytes, clock 11 bytes (see
/// BandClock), heart rate 2 bytes, button press 1 byte.
class VirtualBand {
 public:
  /// The address is six hexadecimal fields with colons, taken in lower case; one that is not is a
  /// programming error. Observers and the radio are borrowed.
  explicit VirtualBand(const platform::Platform& platform,
                       std::string_view address = kDefaultAddress,
                       std::string_view name = kBandName);
  VirtualBand(const VirtualBand&) = delete;
  VirtualBand& operator=(const VirtualBand&) = delete;
  ~VirtualBand() = default;

  /// Whether the text is an address as the constructor takes it.
  static bool isAddress(std::string_view text);

  // --- the radio's side ---

  /// None takes the band off the air.
  void setRadio(BandRadio* radio) { radio_ = radio; }
  /// In range and without a link.
  bool isAdvertising() const { return isInRange_ && link_ == BandLink::disconnected; }
  BandAdvertisement advertisement() const;

  void linkUp();
  void linkDown();
  platform::Result<platform::Bytes> read(const platform::UUID& service,
                                         const platform::UUID& characteristic) const;
  platform::ErrorOrNone write(const platform::UUID& service, const platform::UUID& characteristic,
                              platform::ByteView value, platform::WriteType type);
  platform::ErrorOrNone subscribe(const platform::UUID& service,
                                  const platform::UUID& characteristic, bool enabled);

  // --- the side of its owner ---

  const std::string& address() const { return address_; }
  const std::string& name() const { return name_; }
  BandLink link() const { return link_; }

  const std::string& pairingKey() const { return pairingKey_; }
  void setPairingKey(std::string_view key);

  std::uint8_t batteryLevel() const { return batteryLevel_; }
  /// Per cent; above 100 is an error and changes nothing.
  platform::ErrorOrNone setBatteryLevel(unsigned level);

  /// Counters; metres for the distance. Setting one notifies.
  std::uint32_t steps() const { return steps_; }
  std::uint32_t distance() const { return distance_; }
  std::uint32_t calories() const { return calories_; }
  void setSteps(std::uint32_t steps);
  void setDistance(std::uint32_t distance);
  void setCalories(std::uint32_t calories);

  /// What the next measurement reports; 0 is a failed reading.
  std::uint8_t heartRate() const { return heartRate_; }
  void setHeartRate(std::uint8_t rate);
  bool isMeasuringHeartRate() const { return heartRateTimer_ != nullptr; }

  platform::Bytes currentTime() const { return clock_.bytes(); }

  /// 8 bytes: smallest and largest interval (1.25 ms), latency (events), time-out (10 ms). The band
  /// changing them of its own accord notifies.
  const platform::Bytes& connectionParameters() const { return connectionParameters_; }
  void setConnectionParameters(const std::array<std::uint8_t, 8>& parameters);

  bool isInRange() const { return isInRange_; }
  void setIsInRange(bool isInRange);

  void pressButton();
  /// Ends the link: 7, by the band; 6, as a time-out. An error for another code, without a link, or
  /// where the radio cannot.
  platform::ErrorOrNone drop(long code);
  /// The next so many authentications are answered as wrong, whatever is sent.
  void refuseAuthentication(unsigned times) { refusals_ = times; }

  /// In place of the system's random numbers, for tests.
  using RandomNumber = std::array<std::uint8_t, 16>;
  void setRandomSource(std::function<RandomNumber()> source) { random_ = std::move(source); }

  void addObserver(BandObserver& observer) { observers_.push_back(&observer); }
  void removeObserver(BandObserver& observer) { std::erase(observers_, &observer); }

 private:
  platform::ErrorOrNone refusal(const BandCharacteristic* characteristic, unsigned property,
                                long notPermitted) const;
  platform::ErrorOrNone act(const platform::UUID& characteristic, platform::ByteView value);
  platform::ErrorOrNone authenticate(platform::ByteView value);
  void answerRandomNumber(platform::ByteView encrypted);
  platform::ErrorOrNone showNewAlert(platform::ByteView value);
  platform::ErrorOrNone showAlertLevel(platform::ByteView value);
  platform::ErrorOrNone controlHeartRate(platform::ByteView value);

  platform::Bytes batteryValue() const;
  platform::Bytes stepsValue() const;

  void notify(const platform::UUID& service, const platform::UUID& characteristic,
              const platform::Bytes& value);
  void setLink(BandLink link);
  void didChange(BandProperty property);
  void presenceChanged();
  /// Calls each observer; one may leave, or others, meanwhile.
  template <typename Call>
  void tellObservers(const Call& call);

  platform::RunLoop& runLoop_;
  platform::Logger logger_;
  std::string address_;
  std::string name_;
  BandClock clock_;
  BandRadio* radio_ = nullptr;
  std::vector<BandObserver*> observers_;

  BandLink link_ = BandLink::disconnected;
  bool isInRange_ = true;
  std::set<platform::UUID> subscriptions_;

  std::string pairingKey_{kDefaultPairingKey};
  std::function<RandomNumber()> random_;
  std::optional<RandomNumber> challenge_;  ///< sent, and not answered yet
  unsigned refusals_ = 0;

  std::uint8_t batteryLevel_ = 80;
  platform::Bytes lastCharge_;
  platform::Bytes lastFullCharge_;
  std::uint32_t steps_ = 0;
  std::uint32_t distance_ = 0;
  std::uint32_t calories_ = 0;
  std::uint8_t heartRate_ = 72;
  std::unique_ptr<platform::Timer> heartRateTimer_;
  /// 30 to 50 ms, no latency, 5 s.
  platform::Bytes connectionParameters_{0x18, 0x00, 0x28, 0x00, 0x00, 0x00, 0xF4, 0x01};
};

}  // namespace wrixel2::band
