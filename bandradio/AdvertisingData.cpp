#include "bandradio/AdvertisingData.h"

#include "band/BandProfile.h"
#include "band/VirtualBand.h"

namespace wrixel2::bandradio {

using platform::Bytes;

namespace {

/// Types of advertising structures (Bluetooth Assigned Numbers, 2.3).
constexpr std::uint8_t kFlags = 0x01;
constexpr std::uint8_t kCompleteServices16 = 0x03;
constexpr std::uint8_t kCompleteLocalName = 0x09;
constexpr std::uint8_t kManufacturerSpecific = 0xFF;

void appendStructure(Bytes& bytes, std::uint8_t type, const Bytes& data) {
  bytes.push_back(static_cast<std::uint8_t>(data.size() + 1));
  bytes.push_back(type);
  bytes.insert(bytes.end(), data.begin(), data.end());
}

}  // namespace

AdvertisingData encodeAdvertising(const band::BandAdvertisement& advertisement) {
  AdvertisingData data;
  appendStructure(data.advertisement, kFlags, {advertisement.flags});
  appendStructure(data.advertisement, kManufacturerSpecific, advertisement.manufacturerData);

  appendStructure(data.scanResponse, kCompleteLocalName,
                  platform::bytesOfText(advertisement.localName));
  Bytes services;
  for (const platform::UUID& service : advertisement.services) {
    const auto& bytes = service.bytes();
    const auto number = static_cast<std::uint16_t>(bytes[2] << 8U | bytes[3]);
    if (service == band::shortUUID(number)) {
      services.push_back(bytes[3]);
      services.push_back(bytes[2]);
    }
  }
  appendStructure(data.scanResponse, kCompleteServices16, services);
  return data;
}

}  // namespace wrixel2::bandradio
