#include "protocol/MBBLE/Services/MBControlService.h"

#include <string>
#include <utility>

#include <fmt/format.h>

#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/BandPeripheral.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/SessionManager.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"
#include "protocol/MBModel/MBLEParamsModel.h"

namespace wrixel2::mbservices {

using mbmodel::MBActivityModel;
using mbmodel::MBBatteryInfoModel;
using mbmodel::MBDataReader;
using mbmodel::MBLEParamsModel;
using platform::Bytes;
using platform::description;
using platform::ErrorOrNone;

namespace {
constexpr std::int32_t kService = 0xFEE0;
constexpr std::int32_t kConnParams = 0x2A04;
constexpr std::int32_t kCurrentTime = 0x2A2B;
/// The address plays no part where a characteristic has a full UUID.
constexpr std::int32_t kNoAddress = 9;

struct VendorCharacteristic {
  std::string_view key;
  std::string_view uuid;
};
constexpr VendorCharacteristic kVendorCharacteristics[] = {
    {MB_CHAR_UNK_1, "00000001-0000-3512-2118-0009af100700"},
    {MB_CHAR_UNK_2, "00000002-0000-3512-2118-0009af100700"},
    {MB_CHAR_UNK_3, "00000003-0000-3512-2118-0009af100700"},
    {MB_CHAR_UNK_4, "00000004-0000-3512-2118-0009af100700"},
    // The same UUID once more, deliberately: the band offers it once, and it binds to both.
    {MB_CHAR_UNK_5, "00000004-0000-3512-2118-0009af100700"},
    {MB_CHAR_BATTERY, "00000006-0000-3512-2118-0009af100700"},
    {MB_CHAR_STEPS, "00000007-0000-3512-2118-0009af100700"},
    {MB_CHAR_CONFIGURE, "00000008-0000-3512-2118-0009af100700"},
    {MB_CHAR_BUTN_NOTIFY, "00000010-0000-3512-2118-0009af100700"},
};

constexpr std::string_view kShellCompanion = "org.corvale.wrixel2Ipc";

/// 5 s, in units of 10 ms.
constexpr std::uint64_t kSupervisionTimeout = 500;
/// From this interval on (63.75 ms, in units of 1.25 ms) the link is too slow for alerts.
constexpr std::uint64_t kSlowInterval = 51;

MBLEParamsModel leParams(std::uint64_t connIntMin, std::uint64_t connIntMax) {
  MBLEParamsModel params;
  params.setConnIntMin(connIntMin);
  params.setConnIntMax(connIntMax);
  params.setTimeout(kSupervisionTimeout);
  return params;
}

std::string describe(const std::optional<Bytes>& value) {
  return value ? description(*value) : "(null)";
}
}  // namespace

MBControlService::MBControlService(const platform::Platform& platform,
                                   const std::weak_ptr<BandPeripheral>& parent)
    : BandService(platform, MB_SERVICE_CONTROL, parent, kService, "MBControlService"),
      shellCompanion_(platform.messageCenters.centerNamed(kShellCompanion)) {
  for (const auto& [key, uuid] : kVendorCharacteristics) {
    addCharacteristicWithUuid(std::string(key), kNoAddress, uuid);
  }
  addCharacteristicWithAddress(std::string(MB_CHAR_CONN_PARAMS), kConnParams);
  addCharacteristicWithAddress(std::string(MB_CHAR_TIME), kCurrentTime);
}

MBControlService::~MBControlService() = default;

void MBControlService::writeHighLEParams() { writeLEParams(leParams(460, 500)); }
void MBControlService::writeLowLEParams() { writeLEParams(leParams(39, 49)); }
void MBControlService::writeHrLEParams() { writeLEParams(leParams(25, 40)); }

void MBControlService::writeLEParams(const MBLEParamsModel& params) {
  (*this)[MB_CHAR_CONN_PARAMS]->writeValue(params.data(), nullptr);
}

void MBControlService::readLEParamsWithBlock(LEParamsCallback block) {
  (*this)[MB_CHAR_CONN_PARAMS]->readValueWithBlock(
      [block = std::move(block)](const std::optional<Bytes>& data, const ErrorOrNone& error) {
        if (error) {
          block(std::nullopt, error);
        } else {
          block(MBLEParamsModel(data.value_or(Bytes{})), std::nullopt);
        }
      });
}

void MBControlService::checkAndSetLowLEParamsWithBlock(platform::Task block) {
  const auto owner = band();
  if (!owner) {
    return;
  }
  if (owner->shouldUpdateLEParams()) {
    writeLowLEParams();
  }
  // Before the mark goes: what is sent from here still sees that the link is only being changed.
  block();
  owner->setShouldUpdateLEParams(false);
}

void MBControlService::readReatimeStepsWithBlock(RealtimeStepsCallback block) {
  realtimeStepsCallback_ = std::move(block);
  (*this)[MB_CHAR_STEPS]->readValueWithBlock(
      [weak = weakSelf(*this)](const std::optional<Bytes>& data, const ErrorOrNone& error) {
        if (const auto self = weak.lock()) {
          self->handleMBRealtimeSteps(data, error);
        }
      });
}

MBControlService::RealtimeStepsCallback MBControlService::takeRealtimeStepsCallback() {
  return std::exchange(realtimeStepsCallback_, nullptr);
}

void MBControlService::readBatteryInfoWithBlock(BatteryInfoCallback block) {
  batteryInfoCallback_ = std::move(block);
  (*this)[MB_CHAR_BATTERY]->readValueWithBlock(
      [weak = weakSelf(*this)](const std::optional<Bytes>& data, const ErrorOrNone& error) {
        if (const auto self = weak.lock()) {
          self->handleMBBatteryInfo(data, error);
        }
      });
}

void MBControlService::readTimetWithBlock(TimeCallback block) {
  timeCallback_ = std::move(block);
  (*this)[MB_CHAR_TIME]->readValueWithBlock(
      [weak = weakSelf(*this)](const std::optional<Bytes>& data, const ErrorOrNone& error) {
        if (const auto self = weak.lock()) {
          self->handleTime(data, error);
        }
      });
}

void MBControlService::writeTime(const std::optional<platform::Date>& date,
                                 bleobjects::ErrorCallback block) {
  writeTimetWithWork(
      [this, &date](mbmodel::MBDataBuilder& builder) {
        builder.writeDate(date, platform().localTimeZone);
      },
      std::move(block));
}

void MBControlService::writeTimetWithWork(const PayloadFiller& work,
                                          bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_TIME, work, std::move(block));
}

void MBControlService::notifyCharacteristicHandler(
    const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
    const ErrorOrNone& error) {
  if (error || !characteristic) {
    logger().warning(fmt::format("Error during notify handling. Err: {}, char {}",
                                 description(error),
                                 characteristic ? characteristic->name() : "(null)"));
    return;
  }
  const auto& key = characteristic->name();
  const auto& value = characteristic->value();
  if (key == MB_CHAR_STEPS) {
    handleMBRealtimeSteps(value, std::nullopt);
  } else if (key == MB_CHAR_BATTERY) {
    handleMBBatteryInfo(value, std::nullopt);
  } else if (key == MB_CHAR_BUTN_NOTIFY) {
    handleButtonPress();
  } else if (key == MB_CHAR_CONN_PARAMS) {
    handleLeParamChange(value);
  } else {
    logger().warning(fmt::format("WARN: No notify handler for {} = {}", key, describe(value)));
  }
}

void MBControlService::handleMBRealtimeSteps(const std::optional<Bytes>& value,
                                             const ErrorOrNone& error) {
  const auto completion = takeRealtimeStepsCallback();
  if (error) {
    if (completion) {
      completion(std::nullopt, error);
    }
    return;
  }
  const MBActivityModel activity(value.value_or(Bytes{}));
  if (const auto owner = band()) {
    owner->setActivity(activity);
  }
  if (const auto session = sessionManager()) {
    session->sendPeripheralCapabilities();
  }
  if (completion) {
    completion(activity, std::nullopt);
  }
}

void MBControlService::handleMBBatteryInfo(const std::optional<Bytes>& value,
                                           const ErrorOrNone& error) {
  // Unlike the counters above it is not kept for the band here, deliberately: whoever asked for it
  // keeps it, and one that comes unasked is only a reason to report what is known.
  const MBBatteryInfoModel info(value.value_or(Bytes{}), platform().localTimeZone);
  if (const auto completion = std::exchange(batteryInfoCallback_, nullptr)) {
    completion(info, error);
  }
  if (const auto session = sessionManager()) {
    session->sendPeripheralCapabilities();
  }
}

void MBControlService::handleTime(const std::optional<Bytes>& value, const ErrorOrNone& error) {
  const auto completion = std::exchange(timeCallback_, nullptr);
  if (!completion) {
    return;
  }
  if (error) {
    completion(std::nullopt, error);
  } else {
    completion(MBDataReader(value.value_or(Bytes{})).readTimeDate(platform()), std::nullopt);
  }
}

void MBControlService::handleButtonPress() { shellCompanion_->sendMessageName("buttonPressed"); }

void MBControlService::handleLeParamChange(const std::optional<Bytes>& value) {
  if (!value) {
    logger().warning("Received null value!");
    return;
  }
  if (MBDataReader(*value).readInt(2) < kSlowInterval) {
    return;
  }
  const auto session = sessionManager();
  const auto owner = band();
  if (session && session->isConnectedMode()) {
    writeLowLEParams();
  } else if (owner) {
    owner->setShouldUpdateLEParams(true);
  }
}

}  // namespace wrixel2::mbservices
