#include "band/BandProfile.h"

namespace wrixel2::band {

namespace {

using characteristic_property::notify;
using characteristic_property::read;
/// Whatever can be written takes both kinds of write.
constexpr unsigned kWritable =
    characteristic_property::write | characteristic_property::writeWithoutResponse;

}  // namespace

const std::vector<BandService>& bandServices() {
  static const std::vector<BandService> services = {
      {kControlService,
       {{vendorUUID(0x01), kWritable | notify, "unknown 1"},
        {vendorUUID(0x02), kWritable | notify, "unknown 2"},
        {vendorUUID(0x03), kWritable | notify, "unknown 3"},
        // Hosts know this one under two names; the band has it once.
        {vendorUUID(0x04), kWritable | notify, "unknown 4"},
        {kBatteryInfo, read | notify, "battery"},
        {kRealtimeSteps, read | notify, "steps"},
        {kConfigData, kWritable | notify, "configuration"},
        {kButtonPress, notify, "button"},
        {kConnectionParameters, read | kWritable | notify, "connection parameters"},
        {kCurrentTime, read | kWritable, "clock"}}},
      {kAuthService, {{kAuthInfo, kWritable | notify, "authentication"}}},
      {kAlertNotificationService,
       {{kNewAlert, kWritable, "new alert"}, {kAlertControl, kWritable, "alert control"}}},
      {kImmediateAlertService, {{kAlertLevel, kWritable, "alert level"}}},
      {kHeartRateService,
       {{kHeartRateControl, kWritable, "heart-rate control"},
        {kHeartRateMeasurement, notify, "heart rate"}}}};
  return services;
}

const BandCharacteristic* findCharacteristic(const platform::UUID& service,
                                             const platform::UUID& characteristic) {
  for (const auto& offered : bandServices()) {
    if (offered.uuid != service) {
      continue;
    }
    for (const auto& entry : offered.characteristics) {
      if (entry.uuid == characteristic) {
        return &entry;
      }
    }
  }
  return nullptr;
}

}  // namespace wrixel2::band
