#pragma once

#include "platform/Bytes.h"

namespace wrixel2::band {
struct BandAdvertisement;
}  // namespace wrixel2::band

namespace wrixel2::bandradio {

/// What an adapter is given to send: structures of length, type and data (Core Specification Vol 3,
/// Part C, 11). Each part has room for 31 bytes.
struct AdvertisingData {
  platform::Bytes advertisement;
  /// Sent only to those who ask: scanners that scan actively.
  platform::Bytes scanResponse;
};

inline constexpr std::size_t kAdvertisingRoom = 31;

/// Flags and the manufacturer's entry fill the advertisement, so the name and the services go into
/// the scan response. Only services with a 16-bit UUID are named: no other has room.
AdvertisingData encodeAdvertising(const band::BandAdvertisement& advertisement);

}  // namespace wrixel2::bandradio
