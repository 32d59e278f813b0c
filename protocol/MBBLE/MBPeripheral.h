#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "protocol/MBBLE/Services/BandPeripheral.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"

namespace wrixel2::mbservices {
class KeyProvider;
class MBAlertService;
class MBAncsAlertService;
class MBAuthService;
class MBControlService;
class MBHeartService;
struct AuthState;
}  // namespace wrixel2::mbservices

namespace wrixel2::mbble {

/// One band: its five services, what was last read of it, and the way from a fresh link to a band
/// that can be given requests.
class MBPeripheral final : public mbservices::BandPeripheral {
 public:
  using Completion = platform::UniqueFunction<void(const platform::ErrorOrNone& error)>;

  /// The distributed notification that each band observes.
  static constexpr std::string_view kDeviceUnlocked = "org.corvale.wrixel2.devUnlocked";

  /// The central keeps the session too (SessionManager). The MAC address is text, lower case with
  /// colons. The key provider and the state outlive the band.
  static std::shared_ptr<MBPeripheral> create(
      const platform::Platform& platform, std::shared_ptr<platform::Peripheral> cbPeripheral,
      std::weak_ptr<bleobjects::YMSCBCentralManager> central, std::string mac,
      mbservices::KeyProvider& keyProvider, mbservices::AuthState& authState);
  ~MBPeripheral() override;

  const std::optional<mbmodel::MBBatteryInfoModel>& batteryInfo() const { return batteryInfo_; }
  void setBatteryInfo(std::optional<mbmodel::MBBatteryInfoModel> info) { batteryInfo_ = info; }
  const std::optional<mbmodel::MBActivityModel>& activity() const { return activity_; }
  void setActivity(std::optional<mbmodel::MBActivityModel> activity) override {
    activity_ = activity;
  }
  const std::string& mac() const { return mac_; }
  void setMac(std::string mac) { mac_ = std::move(mac); }
  bool shouldUpdateLEParams() const override { return shouldUpdateLEParams_; }
  void setShouldUpdateLEParams(bool should) override { shouldUpdateLEParams_ = should; }
  std::shared_ptr<mbservices::SessionManager> sessionManager() const override;

  /// The entries of the service table, as what they are.
  mbservices::MBAuthService& authService() const { return *auth_; }
  mbservices::MBControlService& controlService() const { return *control_; }
  mbservices::MBAncsAlertService& ancsAlertService() const { return *ancsAlert_; }
  mbservices::MBAlertService& alertService() const { return *alert_; }
  mbservices::MBHeartService& heartService() const { return *heart_; }

  /// Connects, authenticates and sets up every service. The completion is called at most once:
  /// without an error when the band is initialised, else with what went wrong first. Not at all
  /// when the band falls silent or refuses the key, or the attempt is cancelled.
  void connectWithBlock(Completion completion);
  /// Answers that nobody waits for any more are nothing to act on.
  void defaultConnectionHandler() override {}

  std::string description() const;

 private:
  /// What one connection attempt shares between its steps.
  struct Setup;
  using Step = void (MBPeripheral::*)(const std::shared_ptr<Setup>& setup);

  MBPeripheral(const platform::Platform& platform,
               std::shared_ptr<platform::Peripheral> cbPeripheral,
               std::weak_ptr<bleobjects::YMSCBCentralManager> central, std::string mac);
  void makeServices(mbservices::KeyProvider& keyProvider, mbservices::AuthState& authState);

  /// Ends the attempt; what failed is the beginning of the log line.
  void fail(Setup& setup, std::string_view what, const platform::ErrorOrNone& error) const;
  /// Discovers the service's characteristics, then takes the next step.
  void discover(bleobjects::YMSCBService& service, const std::shared_ptr<Setup>& setup,
                std::string_view failure, Step next);
  /// Turns the characteristic's notifications on, then takes the next step, if any.
  void enableNotifications(bleobjects::YMSCBService& service, std::string_view key,
                           const std::shared_ptr<Setup>& setup, std::string_view failure,
                           Step next);
  void setUpServices(const std::shared_ptr<Setup>& setup);
  void setUpAuthentication(const std::shared_ptr<Setup>& setup);
  void authenticate(const std::shared_ptr<Setup>& setup);
  void setUpControl(const std::shared_ptr<Setup>& setup);
  void countControlNotification(const std::shared_ptr<Setup>& setup);
  void readFirstValues(const std::shared_ptr<Setup>& setup);
  void handleFirstSteps(Setup& setup, const std::optional<mbmodel::MBActivityModel>& activity,
                        const platform::ErrorOrNone& error);
  void handleFirstBatteryInfo(Setup& setup, const std::optional<mbmodel::MBBatteryInfoModel>& info,
                              const platform::ErrorOrNone& error);
  void setUpAncsAlert(const std::shared_ptr<Setup>& setup);
  void setUpAlert(const std::shared_ptr<Setup>& setup);
  void setUpHeart(const std::shared_ptr<Setup>& setup);
  void reportCapabilities() const;

  platform::Logger logger_;
  std::string mac_;
  std::optional<mbmodel::MBBatteryInfoModel> batteryInfo_;
  std::optional<mbmodel::MBActivityModel> activity_;
  bool shouldUpdateLEParams_ = true;
  std::shared_ptr<mbservices::MBAuthService> auth_;
  std::shared_ptr<mbservices::MBControlService> control_;
  std::shared_ptr<mbservices::MBAncsAlertService> ancsAlert_;
  std::shared_ptr<mbservices::MBAlertService> alert_;
  std::shared_ptr<mbservices::MBHeartService> heart_;
  std::unique_ptr<platform::Observation> unlocks_;
};

}  // namespace wrixel2::mbble
