#include "protocol/MBBLE/Services/MBAuthService.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "platform/AES.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/AuthState.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/SessionManager.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBDataBuilder.h"

namespace wrixel2::mbservices {

using platform::Bytes;
using platform::description;
using platform::ErrorOrNone;

namespace {
constexpr std::int32_t kService = 0xFEE1;
constexpr std::string_view kAuthInfoUUID = "00000009-0000-3512-2118-0009af100700";
/// The address plays no part where a characteristic has a full UUID.
constexpr std::int32_t kNoAddress = 9;

constexpr std::array<std::uint8_t, 3> kAccepted{0x10, 0x03, 0x01};
constexpr std::array<std::uint8_t, 3> kRefused{0x10, 0x03, 0x04};
constexpr std::size_t kResponseLength = 19;
constexpr std::size_t kRandomOffset = 3;
constexpr std::size_t kRandomLength = 16;

constexpr int kRetries = 5;
constexpr auto kRetryDelay = std::chrono::seconds(5);
}  // namespace

MBAuthService::MBAuthService(const platform::Platform& platform,
                             const std::weak_ptr<BandPeripheral>& parent, KeyProvider& keyProvider,
                             AuthState& state)
    : BandService(platform, MB_SERVICE_AUTH, parent, kService, "MBAuthService"),
      keyProvider_(keyProvider),
      state_(state) {
  addCharacteristicWithUuid(std::string(MB_CHAR_AUTH_INFO), kNoAddress, kAuthInfoUUID);
}

void MBAuthService::authorizeConnection(bleobjects::ErrorCallback completion) {
  authCallback_ = std::move(completion);
  doRequestAuth();
}

void MBAuthService::doRequestAuth() {
  writeAuthReqWithBlock(
      [](mbmodel::MBDataBuilder& builder) { builder.writeInt(0x02, 1).writeInt(0x00, 1); },
      nullptr);
}

void MBAuthService::writeAuthReqWithBlock(const PayloadFiller& work,
                                          bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_AUTH_INFO, work, std::move(block));
}

void MBAuthService::doRequestFullAuthonWithCode(const Bytes& code,
                                                bleobjects::ErrorCallback block) {
  (*this)[MB_CHAR_AUTH_INFO]->writeValue(code, std::move(block));
}

Bytes MBAuthService::authorize(platform::ByteView response) {
  const std::string key = platform::md5(keyProvider_.getMiFitAuthId());
  const auto encrypted = platform::AES128EncryptedDataWithKey(
      response.subspan(kRandomOffset, kRandomLength), key, platform().log);
  Bytes code{0x03, 0x00};
  if (encrypted) {
    code.insert(code.end(), encrypted->begin(), encrypted->end());
  }
  logger().info(fmt::format("Successfully generated auth code: {}", description(code)));
  doRequestFullAuthonWithCode(code, nullptr);
  return code;
}

void MBAuthService::notifyCharacteristicHandler(
    const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
    const ErrorOrNone& error) {
  if (error || !characteristic || !characteristic->cbCharacteristic()) {
    // In spite of what the line says nothing is retried from here: after an error of the link the
    // session starts over with a new one, and two exchanges at once would refuse each other.
    logger().warning(
        fmt::format("Error during notify handling. {} Let's retry", description(error)));
    return;
  }
  if (isAuthorized_) {
    logger().warning("Trying to double authenticate");
    return;
  }
  const auto& value = characteristic->value();
  const auto is = [&value](const auto& message) {
    return value && std::ranges::equal(*value, message);
  };
  if (is(kAccepted)) {
    handleSuccess();
  } else if (is(kRefused)) {
    handleRefusal();
  } else if (!value || value->size() != kResponseLength) {
    logger().warning(fmt::format("Unknown response: {}", value ? description(*value) : "(null)"));
  } else if (value == state_.lastResponse) {
    logger().warning(fmt::format("Already got cipher {}!", description(*value)));
  } else {
    // Only the length tells it from the rest, deliberately: the bytes in front say nothing that the
    // band's own verdict does not say better.
    const Bytes response = *value;
    authorize(response);
    state_.lastResponse = response;
  }
}

void MBAuthService::noteVerdict(AuthVerdict verdict) {
  state_.verdict = verdict;
  if (const auto session = sessionManager()) {
    session->authVerdictGiven();
  }
}

void MBAuthService::handleSuccess() {
  logger().info("Successfully authenticated!");
  isAuthorized_ = true;
  noteVerdict(AuthVerdict::accepted);
  state_.failureCount = 0;
  state_.lastResponse.reset();
  if (const auto completion = std::exchange(authCallback_, nullptr)) {
    completion(std::nullopt);
  }
}

void MBAuthService::handleRefusal() {
  logger().warning(fmt::format("Authentication failed retry {} in 5s!", state_.failureCount));
  noteVerdict(AuthVerdict::refused);
  if (state_.failureCount++ >= kRetries) {
    return;
  }
  platform().runLoop.mainQueue().after(kRetryDelay, [weak = weakSelf(*this)] {
    if (const auto self = weak.lock()) {
      self->authorizeConnection(std::move(self->authCallback_));
    }
  });
}

}  // namespace wrixel2::mbservices
