#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/UUID.h"
#include "platform/Value.h"

namespace wrixel2::platform::bluez {

/// Reading of Device1's properties.

/// The version-5 UUID of address type and address: the same in every run and on every adapter.
UUID identifierOfDevice(const Dictionary& device);
/// None for a device that has not told its name: its alias is then its address with dashes.
std::optional<std::string> nameOfDevice(const Dictionary& device);
/// Whether it is known to offer any of the services; none means any device.
bool offersAny(const Dictionary& device, const std::optional<std::vector<UUID>>& services);
/// Whether nothing is known of what it offers.
bool offersNothing(const Dictionary& device);
/// Manufacturer data and local name, where known, under the keys of an advertisement.
Dictionary advertisementOfDevice(const Dictionary& device);
/// In dBm, 127 when the radio has none.
int rssiOfDevice(const Dictionary& device);

/// The UUID property of a GATT object; none if it is no UUID.
std::optional<UUID> uuidOfObject(const Dictionary& properties);

}  // namespace wrixel2::platform::bluez
