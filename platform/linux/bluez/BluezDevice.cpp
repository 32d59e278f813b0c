#include "platform/linux/bluez/BluezDevice.h"

#include <algorithm>
#include <charconv>

#include "platform/CentralManager.h"

namespace wrixel2::platform::bluez {
namespace {

constexpr int kNoSignalStrength = 127;

std::string addressWithDashes(std::string address) {
  std::ranges::replace(address, ':', '-');
  return address;
}

// The raw entry: the company number (Core Specification Supplement, Part A, 1.4.2) little-endian,
// then the company's bytes.
std::optional<Bytes> manufacturerEntry(const Dictionary& device) {
  const auto* companies = find(device, "ManufacturerData");
  if (companies == nullptr || companies->dictionary() == nullptr) {
    return std::nullopt;
  }
  for (const auto& [company, data] : *companies->dictionary()) {
    std::uint16_t number = 0;
    const auto* const end = company.data() + company.size();
    const auto parsed = std::from_chars(company.data(), end, number);
    if (parsed.ec == std::errc() && parsed.ptr == end && data.data() != nullptr) {
      Bytes entry = {static_cast<std::uint8_t>(number & 0xFF),
                     static_cast<std::uint8_t>(number >> 8)};
      entry.insert(entry.end(), data.data()->begin(), data.data()->end());
      return entry;
    }
  }
  return std::nullopt;
}

}  // namespace

UUID identifierOfDevice(const Dictionary& device) {
  static const UUID nameSpace = UUID::withString("c8a3f0d2-51b7-4e6e-8f44-0d9b6f1a7e35");
  const auto type = textForKey(device, "AddressType").value_or("public");
  return UUID::version5(nameSpace, type + " " + textForKey(device, "Address").value_or(""));
}

std::optional<std::string> nameOfDevice(const Dictionary& device) {
  if (auto name = textForKey(device, "Name")) {
    return name;
  }
  auto alias = textForKey(device, "Alias");
  if (alias && *alias == addressWithDashes(textForKey(device, "Address").value_or(""))) {
    return std::nullopt;
  }
  return alias;
}

bool offersAny(const Dictionary& device, const std::optional<std::vector<UUID>>& services) {
  if (!services) {
    return true;
  }
  const auto* offered = find(device, "UUIDs");
  if (offered == nullptr || offered->array() == nullptr) {
    return false;
  }
  return std::ranges::any_of(*offered->array(), [&services](const Value& text) {
    const auto uuid = text.text() == nullptr ? std::nullopt : UUID::fromText(*text.text());
    return uuid && std::ranges::find(*services, *uuid) != services->end();
  });
}

bool offersNothing(const Dictionary& device) {
  const auto* offered = find(device, "UUIDs");
  return offered == nullptr || offered->array() == nullptr || offered->array()->empty();
}

Dictionary advertisementOfDevice(const Dictionary& device) {
  Dictionary advertisement;
  if (auto entry = manufacturerEntry(device)) {
    advertisement.emplace(kAdvDataManufacturerData, std::move(*entry));
  }
  if (auto name = nameOfDevice(device)) {
    advertisement.emplace(kAdvDataLocalName, std::move(*name));
  }
  return advertisement;
}

int rssiOfDevice(const Dictionary& device) {
  return find(device, "RSSI") == nullptr ? kNoSignalStrength : intForKey(device, "RSSI");
}

std::optional<UUID> uuidOfObject(const Dictionary& properties) {
  const auto text = textForKey(properties, "UUID");
  return text ? UUID::fromText(*text) : std::nullopt;
}

}  // namespace wrixel2::platform::bluez
