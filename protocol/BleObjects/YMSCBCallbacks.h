#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/UniqueFunction.h"
#include "platform/Value.h"

namespace wrixel2::platform {
class Peripheral;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

class YMSCBCharacteristic;
class YMSCBDescriptor;
class YMSCBPeripheral;
class YMSCBService;

/// Services and characteristics by the names under which their owners keep them.
using ServiceDict = std::map<std::string, std::shared_ptr<YMSCBService>, std::less<>>;
using CharacteristicDict = std::map<std::string, std::shared_ptr<YMSCBCharacteristic>, std::less<>>;

/// The end of a write or of a change of notifications.
using ErrorCallback = platform::UniqueFunction<void(const platform::ErrorOrNone& error)>;
/// The end of a read. After an error the data is the last value known, or none.
using ReadCallback = platform::UniqueFunction<void(const std::optional<platform::Bytes>& data,
                                                   const platform::ErrorOrNone& error)>;
using DiscoverDescriptorsCallback =
    platform::UniqueFunction<void(const std::vector<std::shared_ptr<YMSCBDescriptor>>& descriptors,
                                  const platform::ErrorOrNone& error)>;
using DiscoverCharacteristicsCallback = platform::UniqueFunction<void(
    const CharacteristicDict& characteristics, const platform::ErrorOrNone& error)>;
using DiscoverServicesCallback =
    platform::UniqueFunction<void(const std::vector<std::shared_ptr<YMSCBService>>& services,
                                  const platform::ErrorOrNone& error)>;
using ConnectCallback = platform::UniqueFunction<void(
    const std::shared_ptr<YMSCBPeripheral>& peripheral, const platform::ErrorOrNone& error)>;
/// Called for every advertisement of a scan; the signal strength is in dBm.
using DiscoveredCallback = platform::UniqueFunction<void(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const platform::Dictionary& advertisementData, int rssi, const platform::ErrorOrNone& error)>;
using RetrievedCallback =
    platform::UniqueFunction<void(const std::shared_ptr<platform::Peripheral>& peripheral)>;

}  // namespace wrixel2::bleobjects
