#pragma once

#include <memory>

#include "platform/Bytes.h"
#include "protocol/MBBLE/Services/BandService.h"

namespace wrixel2::mbservices {

enum class AuthVerdict : std::uint8_t;
struct AuthState;
class KeyProvider;

/// Proves to the band that this phone knows its pairing key: asks for a random number, sends it
/// back encrypted (AES-128 under the MD5 of the key's text) and waits for the verdict.
///
/// Messages: 02 00 asks; three bytes and 16 of random number answer; 03 00 and 16 bytes is the
/// proof; 10 03 01 accepts it and 10 03 04 refuses it.
class MBAuthService final : public BandService {
 public:
  /// The key provider and the state outlive the service.
  MBAuthService(const platform::Platform& platform, const std::weak_ptr<BandPeripheral>& parent,
                KeyProvider& keyProvider, AuthState& state);

  bool isAuthorized() const { return isAuthorized_; }
  /// Kept for the interface; the exchange does not read it.
  bool isRetryActive() const { return retryActive_; }
  void setIsRetryActive(bool active) { retryActive_ = active; }

  /// Called once, without an error, when the band accepts; never if it refuses six times in a row
  /// or falls silent, which the session's watchdogs end.
  void authorizeConnection(bleobjects::ErrorCallback completion);
  void resetAuthorization() { isAuthorized_ = false; }
  void doRequestAuth();
  void writeAuthReqWithBlock(const PayloadFiller& work, bleobjects::ErrorCallback block);
  void doRequestFullAuthonWithCode(const platform::Bytes& code, bleobjects::ErrorCallback block);
  /// Answers the band's random-number message of 19 bytes; returns the 18 bytes it sent.
  platform::Bytes authorize(platform::ByteView response);

  void notifyCharacteristicHandler(
      const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
      const platform::ErrorOrNone& error) override;

 private:
  void noteVerdict(AuthVerdict verdict);
  void handleSuccess();
  void handleRefusal();

  KeyProvider& keyProvider_;
  AuthState& state_;
  bool isAuthorized_ = false;
  bool retryActive_ = false;
  bleobjects::ErrorCallback authCallback_;
};

}  // namespace wrixel2::mbservices
