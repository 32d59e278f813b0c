#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/UUID.h"

/// What the band offers over the air: its services and characteristics, and the names they go by.
namespace wrixel2::band {

/// A 16-bit UUID on the Bluetooth base (Core Specification Vol 3, Part B, 2.5.1).
constexpr platform::UUID shortUUID(std::uint16_t number) {
  return platform::UUID(
      std::array<std::uint8_t, 16>{0x00, 0x00, static_cast<std::uint8_t>(number >> 8U),
                                   static_cast<std::uint8_t>(number & 0xFFU), 0x00, 0x00, 0x10,
                                   0x00, 0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB});
}

/// One of the maker's own: 000000nn-0000-3512-2118-0009af100700.
constexpr platform::UUID vendorUUID(std::uint8_t number) {
  return platform::UUID(std::array<std::uint8_t, 16>{0x00, 0x00, 0x00, number, 0x00, 0x00, 0x35,
                                                     0x12, 0x21, 0x18, 0x00, 0x09, 0xAF, 0x10, 0x07,
                                                     0x00});
}

inline constexpr platform::UUID kControlService = shortUUID(0xFEE0);
inline constexpr platform::UUID kBatteryInfo = vendorUUID(0x06);
inline constexpr platform::UUID kRealtimeSteps = vendorUUID(0x07);
inline constexpr platform::UUID kConfigData = vendorUUID(0x08);
inline constexpr platform::UUID kButtonPress = vendorUUID(0x10);
inline constexpr platform::UUID kConnectionParameters = shortUUID(0x2A04);
inline constexpr platform::UUID kCurrentTime = shortUUID(0x2A2B);

inline constexpr platform::UUID kAuthService = shortUUID(0xFEE1);
inline constexpr platform::UUID kAuthInfo = vendorUUID(0x09);

inline constexpr platform::UUID kAlertNotificationService = shortUUID(0x1811);
inline constexpr platform::UUID kNewAlert = shortUUID(0x2A46);
inline constexpr platform::UUID kAlertControl = shortUUID(0x2A44);

inline constexpr platform::UUID kImmediateAlertService = shortUUID(0x1802);
inline constexpr platform::UUID kAlertLevel = shortUUID(0x2A06);

inline constexpr platform::UUID kHeartRateService = shortUUID(0x180D);
inline constexpr platform::UUID kHeartRateControl = shortUUID(0x2A39);
inline constexpr platform::UUID kHeartRateMeasurement = shortUUID(0x2A37);

/// Characteristic property bits (Core Specification Vol 3, Part G, 3.3.1.1).
namespace characteristic_property {
inline constexpr unsigned read = 0x02;
inline constexpr unsigned writeWithoutResponse = 0x04;
inline constexpr unsigned write = 0x08;
inline constexpr unsigned notify = 0x10;
}  // namespace characteristic_property

/// Error codes of the attribute protocol (Core Specification Vol 3, Part F, 3.4.1.1).
namespace att_error {
inline constexpr long invalidHandle = 0x01;
inline constexpr long readNotPermitted = 0x02;
inline constexpr long writeNotPermitted = 0x03;
inline constexpr long insufficientAuthentication = 0x05;
inline constexpr long requestNotSupported = 0x06;
inline constexpr long invalidAttributeValueLength = 0x0D;
inline constexpr long unlikelyError = 0x0E;
inline constexpr long valueNotAllowed = 0x13;
}  // namespace att_error

struct BandCharacteristic {
  platform::UUID uuid;
  unsigned properties = 0;  ///< characteristic_property bits
  std::string_view name;    ///< for people
};

struct BandService {
  platform::UUID uuid;
  std::vector<BandCharacteristic> characteristics;
};

/// The five services in the order in which the band lists them. Every characteristic's UUID occurs
/// once in the whole table.
const std::vector<BandService>& bandServices();

/// The entry of a characteristic in a service, or none.
const BandCharacteristic* findCharacteristic(const platform::UUID& service,
                                             const platform::UUID& characteristic);

}  // namespace wrixel2::band
