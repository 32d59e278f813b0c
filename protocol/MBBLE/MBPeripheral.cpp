#include "protocol/MBBLE/MBPeripheral.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/MBAlertService.h"
#include "protocol/MBBLE/Services/MBAncsAlertService.h"
#include "protocol/MBBLE/Services/MBAuthService.h"
#include "protocol/MBBLE/Services/MBControlService.h"
#include "protocol/MBBLE/Services/MBHeartService.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/SessionManager.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBHelper.h"

namespace wrixel2::mbble {

using mbservices::weakSelf;
using platform::ErrorOrNone;

namespace {

/// What the control service tells of its own accord.
constexpr std::array kControlNotifications{mbservices::MB_CHAR_BATTERY, mbservices::MB_CHAR_STEPS,
                                           mbservices::MB_CHAR_BUTN_NOTIFY,
                                           mbservices::MB_CHAR_CONN_PARAMS};

void markReady(bleobjects::YMSCBService& service) {
  service.setIsEnabled(true);
  service.setIsSupported(true);
}
}  // namespace

struct MBPeripheral::Setup {
  explicit Setup(Completion callback) : completion(std::move(callback)) {}

  void finish(const ErrorOrNone& error) {
    if (const auto callback = std::exchange(completion, nullptr)) {
      callback(error);
    }
  }

  Completion completion;
  /// To be called once by each service that is set up.
  mbmodel::MBHelper::Counter serviceIsReady;
  /// To be called once by each notification of the control service that is on.
  mbmodel::MBHelper::Counter controlNotificationIsOn;
};

std::shared_ptr<MBPeripheral> MBPeripheral::create(
    const platform::Platform& platform, std::shared_ptr<platform::Peripheral> cbPeripheral,
    std::weak_ptr<bleobjects::YMSCBCentralManager> central, std::string mac,
    mbservices::KeyProvider& keyProvider, mbservices::AuthState& authState) {
  std::shared_ptr<MBPeripheral> band(
      new MBPeripheral(platform, std::move(cbPeripheral), std::move(central), std::move(mac)));
  band->init();
  band->makeServices(keyProvider, authState);
  return band;
}

MBPeripheral::MBPeripheral(const platform::Platform& platform,
                           std::shared_ptr<platform::Peripheral> cbPeripheral,
                           std::weak_ptr<bleobjects::YMSCBCentralManager> central, std::string mac)
    : BandPeripheral(platform, std::move(cbPeripheral), std::move(central), 0, 0),
      logger_(platform.log, "MBPeripheral"),
      mac_(std::move(mac)),
      // The band needs nothing done when the phone is unlocked; the observation stands for those
      // who look at what is observed, deliberately without a handler.
      unlocks_(platform.distributedNotificationCenter.addObserver(
          kDeviceUnlocked, [](const platform::Notification&) {})) {}

MBPeripheral::~MBPeripheral() = default;

void MBPeripheral::makeServices(mbservices::KeyProvider& keyProvider,
                                mbservices::AuthState& authState) {
  const std::weak_ptr<BandPeripheral> self = weakSelf<BandPeripheral>(*this);
  control_ = std::make_shared<mbservices::MBControlService>(platform(), self);
  auth_ = std::make_shared<mbservices::MBAuthService>(platform(), self, keyProvider, authState);
  ancsAlert_ = std::make_shared<mbservices::MBAncsAlertService>(platform(), self);
  alert_ = std::make_shared<mbservices::MBAlertService>(platform(), self);
  heart_ = std::make_shared<mbservices::MBHeartService>(platform(), self);
  bleobjects::ServiceDict services;
  for (const auto& service : std::initializer_list<std::shared_ptr<bleobjects::YMSCBService>>{
           control_, auth_, ancsAlert_, alert_, heart_}) {
    services.emplace(service->name(), service);
  }
  setServiceDict(std::move(services));
}

std::shared_ptr<mbservices::SessionManager> MBPeripheral::sessionManager() const {
  return std::dynamic_pointer_cast<mbservices::SessionManager>(central());
}

std::string MBPeripheral::description() const {
  return fmt::format("Name={} MAC={}", platform::description(name()), mac_);
}

void MBPeripheral::fail(Setup& setup, std::string_view what, const ErrorOrNone& error) const {
  logger_.warning(fmt::format("{} {}", what, platform::description(error)));
  setup.finish(error);
}

void MBPeripheral::connectWithBlock(Completion completion) {
  auto setup = std::make_shared<Setup>(std::move(completion));
  setup->serviceIsReady = mbmodel::MBHelper::serviceCounter(
      serviceDict().size(), [weak = weakSelf(*this), weakSetup = std::weak_ptr(setup)] {
        const auto self = weak.lock();
        const auto alive = weakSetup.lock();
        if (self && alive) {
          self->setIsInitialized(true);
          alive->finish(std::nullopt);
        }
      });
  resetWatchdog();
  connectWithOptions({}, [weak = weakSelf(*this), setup](const auto&, const ErrorOrNone& error) {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    if (error) {
      setup->finish(error);
    } else {
      self->setUpServices(setup);
    }
  });
}

void MBPeripheral::setUpServices(const std::shared_ptr<Setup>& setup) {
  discoverServices(
      services(), [weak = weakSelf(*this), setup](const auto&, const ErrorOrNone& error) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        if (error) {
          self->fail(*setup, "discoverServices error:", error);
        } else {
          self->discover(*self->auth_, setup,
                         "auth discoverCharacteristics error:", &MBPeripheral::setUpAuthentication);
        }
      });
}

void MBPeripheral::discover(bleobjects::YMSCBService& service, const std::shared_ptr<Setup>& setup,
                            std::string_view failure, Step next) {
  service.discoverCharacteristics(
      service.characteristics(),
      [weak = weakSelf(*this), setup, failure, next](const auto&, const ErrorOrNone& error) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        if (error) {
          self->fail(*setup, failure, error);
        } else {
          (*self.*next)(setup);
        }
      });
}

void MBPeripheral::enableNotifications(bleobjects::YMSCBService& service, std::string_view key,
                                       const std::shared_ptr<Setup>& setup,
                                       std::string_view failure, Step next) {
  service[key]->setNotifyValue(
      true, [weak = weakSelf(*this), setup, failure, next](const ErrorOrNone& error) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        if (error) {
          self->fail(*setup, failure, error);
        } else if (next != nullptr) {
          (*self.*next)(setup);
        }
      });
}

void MBPeripheral::setUpAuthentication(const std::shared_ptr<Setup>& setup) {
  enableNotifications(*auth_, mbservices::MB_CHAR_AUTH_INFO, setup,
                      "auth notifyAuthSet error:", &MBPeripheral::authenticate);
}

void MBPeripheral::authenticate(const std::shared_ptr<Setup>& setup) {
  setup->serviceIsReady();
  auth_->authorizeConnection([weak = weakSelf(*this), setup](const ErrorOrNone&) {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    self->discover(*self->control_, setup,
                   "ctrl discoverCharacteristics error:", &MBPeripheral::setUpControl);
    self->discover(*self->ancsAlert_, setup, "ancs discoverCharacteristics error.",
                   &MBPeripheral::setUpAncsAlert);
    self->discover(*self->alert_, setup, "discoverCharacteristics error.",
                   &MBPeripheral::setUpAlert);
    self->discover(*self->heart_, setup, "heart discoverCharacteristics error.",
                   &MBPeripheral::setUpHeart);
  });
}

void MBPeripheral::setUpControl(const std::shared_ptr<Setup>& setup) {
  setup->controlNotificationIsOn = mbmodel::MBHelper::counter(
      kControlNotifications.size(), [weak = weakSelf(*this), weakSetup = std::weak_ptr(setup)] {
        const auto self = weak.lock();
        const auto alive = weakSetup.lock();
        if (self && alive) {
          self->readFirstValues(alive);
        }
      });
  for (const auto key : kControlNotifications) {
    enableNotifications(*control_, key, setup, "ctrl setNotifyValue error.",
                        &MBPeripheral::countControlNotification);
  }
  // Requests may be served before the first values are read: they queue up behind these.
  setup->serviceIsReady();
}

void MBPeripheral::countControlNotification(const std::shared_ptr<Setup>& setup) {
  setup->controlNotificationIsOn();
}

void MBPeripheral::readFirstValues(const std::shared_ptr<Setup>& setup) {
  markReady(*control_);
  // A request for steps may have been served in the meantime; it is answered along with this.
  control_->readReatimeStepsWithBlock(
      [weak = weakSelf(*this), setup, earlier = control_->takeRealtimeStepsCallback()](
          const std::optional<mbmodel::MBActivityModel>& activity, const ErrorOrNone& error) {
        if (const auto self = weak.lock()) {
          self->handleFirstSteps(*setup, activity, error);
        }
        if (earlier) {
          earlier(activity, error);
        }
      });
  control_->readBatteryInfoWithBlock(
      [weak = weakSelf(*this), setup](const std::optional<mbmodel::MBBatteryInfoModel>& info,
                                      const ErrorOrNone& error) {
        if (const auto self = weak.lock()) {
          self->handleFirstBatteryInfo(*setup, info, error);
        }
      });
  control_->writeLowLEParams();
}

void MBPeripheral::handleFirstSteps(Setup& setup,
                                    const std::optional<mbmodel::MBActivityModel>& activity,
                                    const ErrorOrNone& error) {
  if (error) {
    fail(setup, "Steps read error.", error);
  } else {
    setActivity(activity);
  }
  reportCapabilities();
}

void MBPeripheral::handleFirstBatteryInfo(Setup& setup,
                                          const std::optional<mbmodel::MBBatteryInfoModel>& info,
                                          const ErrorOrNone& error) {
  if (error) {
    fail(setup, "BatteryInfo read error.", error);
  } else {
    setBatteryInfo(info);
  }
  reportCapabilities();
}

void MBPeripheral::setUpAncsAlert(const std::shared_ptr<Setup>& setup) {
  markReady(*ancsAlert_);
  setup->serviceIsReady();
}

void MBPeripheral::setUpAlert(const std::shared_ptr<Setup>& setup) {
  markReady(*alert_);
  setup->serviceIsReady();
}

void MBPeripheral::setUpHeart(const std::shared_ptr<Setup>& setup) {
  markReady(*heart_);
  enableNotifications(*heart_, mbservices::MB_CHAR_HEART_NOTIFY, setup,
                      "heart notifyHeartSet error.", nullptr);
  setup->serviceIsReady();
}

void MBPeripheral::reportCapabilities() const {
  if (const auto session = sessionManager()) {
    session->sendPeripheralCapabilities();
  }
}

}  // namespace wrixel2::mbble
