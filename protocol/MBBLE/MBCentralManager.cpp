#include "protocol/MBBLE/MBCentralManager.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBBLE/Services/MBAlertService.h"
#include "protocol/MBBLE/Services/MBAncsAlertService.h"
#include "protocol/MBBLE/Services/MBAuthService.h"
#include "protocol/MBBLE/Services/MBControlService.h"
#include "protocol/MBBLE/Services/MBHeartService.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"
#include "protocol/MBModel/MBDataReader.h"
#include "protocol/MBModel/MBVibrateModel.h"
#include "protocol/MBModel/Text.h"

namespace wrixel2::mbble {

using mbmodel::MBVibrateModel;
using mbservices::weakSelf;
using platform::description;
using platform::ErrorOrNone;
using std::chrono::seconds;

namespace {
constexpr std::string_view kBandName = "MI Band 2";
constexpr std::string_view kQueueLabel = "com.pelmaro.MiBand2";
constexpr std::string_view kUnknownMac = "00:00:00:00:00:00";
/// Where the band's advertisement carries its MAC address: in its manufacturer data.
constexpr std::size_t kMacOffset = 20;
constexpr std::size_t kMacLength = 6;
constexpr std::size_t kMacTextLength = 17;

constexpr std::string_view kShellCompanion = "org.corvale.wrixel2Ipc";
constexpr std::string_view kCapabilities = "org.corvale.wrixel2.capabilities";
constexpr std::string_view kSteps = "org.corvale.wrixel2.steps";
constexpr std::string_view kStopwatch = "org.corvale.wrixel2.stopwatch";
constexpr const char* kServedPeripherals = "servedPeripherals";
constexpr std::size_t kServedPeripheralsKept = 16;
constexpr std::string_view kWatchdogIdentifier = "com.corvale.wrixel2.wd";

/// Posted in place of a step count when there is no reading.
constexpr std::uint64_t kNoSteps = 999999;

constexpr auto kPowerOnDelay = seconds(2);
constexpr int kWatchdogSeconds = 45;
constexpr int kMeasuringWatchdogSeconds = 23;
constexpr int kLeaveConnectedModeSeconds = 23;
constexpr int kStopWatchdogSeconds = 20;

constexpr auto kRetryDelay = seconds(1);
constexpr auto kRetryInterval = seconds(2);
constexpr int kRetries = 6;

constexpr int kRepeatedAlerts = 10;
constexpr auto kRepeatedAlertInterval = seconds(5);
constexpr float kFirstAlertDelay = 1.0F;
constexpr float kPlainAlertDelay = 0.1F;
constexpr auto kTextAlertDelay = seconds(2);

constexpr std::uint64_t kTextIcon = 9;
constexpr std::uint64_t kTextPattern = 4;
constexpr std::uint64_t kMeasuringIcon = 4;
constexpr std::uint64_t kRepeatedIcon = 27;
constexpr std::uint64_t kUndelayedIcon = 28;
constexpr std::uint64_t kTextOnlyIcon = 29;

constexpr std::int64_t kHeartRateWithBuzz = 1;
constexpr std::int64_t kHeartRateAgain = 3;

bool isPlainIcon(std::uint64_t icon) {
  return icon == 1 || icon == 4 || icon == 26 || icon == 28 || icon == 30;
}

std::shared_ptr<MBVibrateModel> noAlert() {
  return std::make_shared<MBVibrateModel>(1, 0, 0, std::nullopt);
}

std::string_view yesOrNo(bool flag) { return flag ? "YES" : "NO"; }

bool equalIgnoringCase(std::string_view one, std::string_view other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::ranges::equal(one, other, {}, lower, lower);
}

/// Never destroyed: its timers and links end with the process, whose run loop and radio may be gone
/// before static objects are.
std::shared_ptr<MBCentralManager>& sharedInstance() {
  static auto& instance = *new std::shared_ptr<MBCentralManager>();
  return instance;
}

std::vector<platform::UUID> bandServices() {
  std::vector<platform::UUID> services;
  for (const auto* text : {"fee1", "1802", "1811", "fee0", "180D"}) {
    services.push_back(platform::UUID::withString(text));
  }
  return services;
}
}  // namespace

std::shared_ptr<MBCentralManager> MBCentralManager::initSharedManagerWithDelegate(
    const platform::Platform& platform, mbservices::KeyProvider& keyProvider,
    std::weak_ptr<platform::CentralManagerDelegate> delegate) {
  auto& instance = sharedInstance();
  if (!instance) {
    instance = create(platform, keyProvider, MBHealthKitManager::sharedManager(platform),
                      std::move(delegate));
  }
  return instance;
}

std::shared_ptr<MBCentralManager> MBCentralManager::sharedManager(
    const platform::Platform& platform) {
  if (!sharedInstance()) {
    // The line names another initializer on purpose: people search their logs for this text.
    platform::Logger(platform.log, "MBCentralManager")
        .error("ERROR: must call initSharedServiceWithDelegate: first.");
  }
  return sharedInstance();
}

std::shared_ptr<MBCentralManager> MBCentralManager::create(
    const platform::Platform& platform, mbservices::KeyProvider& keyProvider,
    const MBHealthKitManager& healthKitManager,
    std::weak_ptr<platform::CentralManagerDelegate> delegate) {
  std::shared_ptr<MBCentralManager> manager(
      new MBCentralManager(platform, keyProvider, healthKitManager, std::move(delegate)));
  manager->init();
  return manager;
}

MBCentralManager::MBCentralManager(const platform::Platform& platform,
                                   mbservices::KeyProvider& keyProvider,
                                   const MBHealthKitManager& healthKitManager,
                                   std::weak_ptr<platform::CentralManagerDelegate> delegate)
    : YMSCBCentralManager(platform, {std::string(kBandName)},
                          platform.runLoop.makeSerialQueue(kQueueLabel), true, std::move(delegate)),
      keyProvider_(keyProvider),
      healthKitManager_(healthKitManager),
      logger_(platform.log, "MBCentralManager"),
      shellCompanion_(platform.messageCenters.centerNamed(kShellCompanion)),
      servedPeripherals_(platform.userDefaults, kServedPeripherals, kServedPeripheralsKept),
      pendingAlertMode_(noAlert()) {}

MBCentralManager::~MBCentralManager() = default;

std::vector<std::shared_ptr<MBPeripheral>> MBCentralManager::bands() const {
  std::vector<std::shared_ptr<MBPeripheral>> bands;
  bands.reserve(count());
  for (const auto& peripheral : ymsPeripherals()) {
    bands.push_back(std::static_pointer_cast<MBPeripheral>(peripheral));
  }
  return bands;
}

void MBCentralManager::setStatusObserver(platform::UniqueFunction<void()> observer) {
  statusObserver_ =
      observer ? std::make_shared<platform::UniqueFunction<void()>>(std::move(observer)) : nullptr;
}

void MBCentralManager::statusMayHaveChanged() {
  if (!statusObserver_ || statusQueued_) {
    return;
  }
  statusQueued_ = true;
  platform().runLoop.mainQueue().async([weak = weakSelf(*this)] {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    self->statusQueued_ = false;
    if (const auto observer = self->statusObserver_) {
      (*observer)();
    }
  });
}

void MBCentralManager::authVerdictGiven() {
  for (const auto& band : bands()) {
    if (band->authService().isAuthorized()) {
      servedPeripherals_.saveUUID(band->cbPeripheral()->identifier());
    }
  }
  statusMayHaveChanged();
}

void MBCentralManager::setState(SessionState state) {
  state_ = state;
  statusMayHaveChanged();
}

void MBCentralManager::setMacToLock(std::string mac) {
  macToLock_ = std::move(mac);
  statusMayHaveChanged();
}

// --- Power ---

void MBCentralManager::managerPoweredOnHandler() {
  setMacToLock("");
  setState(SessionState::idle);
  services_ = bandServices();
  logger_.info("Central manager status has changed -> PoweredOn");
  readLockFile();
  // Replaces the observation of an earlier power-on that no power-off ended (a reset of the radio),
  // so that a request is answered once.
  capabilityRequests_ = platform().distributedNotificationCenter.addObserver(
      kCapabilityRequest, [weak = weakSelf(*this)](const platform::Notification&) {
        if (const auto self = weak.lock()) {
          self->sendPeripheralCapabilities();
        }
      });
  platform().runLoop.mainQueue().after(kPowerOnDelay, [weak = weakSelf(*this)] {
    if (const auto self = weak.lock()) {
      self->startBandConnection();
    }
  });
}

void MBCentralManager::readLockFile() {
  const auto contents = platform().fileManager.contentsAtPath(platform().systemInfo.lockFilePath);
  ErrorOrNone error;
  if (!contents) {
    error = contents.error();
  } else if (std::ranges::any_of(*contents, [](std::uint8_t byte) { return byte > 0x7F; })) {
    error = platform::Error{
        EILSEQ, fmt::format("{} is not ASCII text", platform().systemInfo.lockFilePath)};
  } else {
    macToLock_.assign(contents->begin(), contents->end());
  }
  logger_.info(fmt::format("Band locked to: {}", error ? "(null)" : macToLock_));
  if (error) {
    logger_.warning(fmt::format("Could not open file: {} Probably no active locks",
                                error->localizedDescription));
  } else {
    setMacToLock(std::string(mbmodel::trimmed(macToLock_)));
  }
}

void MBCentralManager::startBandConnection() {
  initialConnectionRequest([weak = weakSelf(*this)] {
    if (const auto self = weak.lock()) {
      self->kickResetWatchdog();
      self->setState(SessionState::connected);
    }
  });
}

void MBCentralManager::managerPoweredOffHandler() {
  setState(SessionState::poweredOff);
  logger_.info("Central manager status has changed -> PoweredOff");
  capabilityRequests_.reset();
  disconnectMi();
}

void MBCentralManager::managerUnknownHandler() {
  logger_.warning("Central manager status has changed -> Unknown");
}

void MBCentralManager::managerResettingHandler() {
  YMSCBCentralManager::managerResettingHandler();
  logger_.info("Central manager status has changed -> Resetting");
  statusMayHaveChanged();
}

void MBCentralManager::managerUnauthorizedHandler() {
  logger_.info("Central manager status has changed -> Unauthorized");
}

void MBCentralManager::managerUnsupportedHandler() {
  logger_.info("Central manager status has changed -> Unsupported");
}

// --- Finding and connecting ---

void MBCentralManager::initialConnectionRequest(platform::UniqueFunction<void()> completion) {
  int accepted = 0;
  if (manager().respondsToRetrieveConnectedPeripherals()) {
    const auto served = servedPeripherals_.genIdentifiers();
    for (const auto& device : retrieveConnectedPeripheralsWithServices(services_)) {
      const bool isLeftover = !findPeripheral(device) &&
                              std::ranges::find(served, device->identifier()) != served.end();
      if (isLeftover) {
        // Of an earlier run. The band's address, which a lock needs, shows only in what it
        // advertises once the link has ended.
        manager().endLeftoverLink(device);
      } else if (handlePeripheral(device, nullptr)) {
        // By its place in the list, not the one just accepted: deliberate. The bands known are
        // normally one, and of several the first ones are preferred.
        const auto stored = peripheralAtIndex(static_cast<std::size_t>(accepted));
        if (stored) {
          doConnectWithPeripheral(std::static_pointer_cast<MBPeripheral>(stored));
        }
        ++accepted;
      }
    }
  }
  if (accepted > 0) {
    logger_.warning(fmt::format("Somebody is already connected. Found {} peripheral(s)", accepted));
    completion();
    return;
  }
  initialScanForBandWithBlock([weak = weakSelf(*this), completion = std::move(completion)](
                                  const std::shared_ptr<MBPeripheral>& peripheral,
                                  std::optional<int>, const ErrorOrNone& error) {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    self->stopScan();
    if (peripheral && !error) {
      completion();
      self->doConnectWithPeripheral(peripheral);
    } else {
      self->logger_.error(fmt::format("Error occured during scanning. {}", description(error)));
      self->setState(SessionState::idle);
    }
  });
}

void MBCentralManager::initialScanForBandWithBlock(ScanCallback completion) {
  setState(SessionState::scanning);
  scanForPeripheralsWithServicesWithBlock(
      services_, {{std::string(platform::kScanOptionAllowDuplicates), true}},
      [weak = weakSelf(*this), completion = std::move(completion)](
          const std::shared_ptr<platform::Peripheral>& device,
          const platform::Dictionary& advertisementData, int rssi, const ErrorOrNone& error) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        self->setState(SessionState::scanResult);
        if (error) {
          self->setState(SessionState::idle);
          completion(nullptr, std::nullopt, error);
        } else if (const auto band = self->handlePeripheral(device, &advertisementData)) {
          completion(band, rssi, std::nullopt);
        }
      });
}

std::shared_ptr<MBPeripheral> MBCentralManager::handlePeripheral(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const platform::Dictionary* advertisementData) {
  if (auto known = std::static_pointer_cast<MBPeripheral>(findPeripheral(peripheral))) {
    logger_.warning(fmt::format("findPeripheral not null {}", known->description()));
    return known;
  }
  for (const auto& name : knownPeripheralNames()) {
    if (peripheral->name() != name) {
      continue;
    }
    // A device that the phone holds already shows no advertisement, so its MAC address is not
    // known: under a lock it is skipped, deliberately, and found by its advertisement later.
    std::string mac = advertisementData != nullptr ? macFromAdvertisement(*advertisementData)
                                                   : std::string(kUnknownMac);
    if (mac.size() < kMacTextLength) {
      logger_.error(fmt::format("MAC still faulty: {}", mac));
      mac = kUnknownMac;
    }
    // To the letter here, but regardless of case when it is connected: deliberate, so that a lock
    // written by hand in capitals admits no band that is new to us.
    if (!macToLock_.empty() && macToLock_ != mac) {
      logger_.warning(
          fmt::format("Skipping band due to lock. Locked to #{}# found #{}#", macToLock_, mac));
      continue;
    }
    auto band = MBPeripheral::create(platform(), peripheral, weak_from_this(), std::move(mac),
                                     keyProvider_, authState_);
    addPeripheral(band);
    statusMayHaveChanged();
    return band;
  }
  return nullptr;
}

std::string MBCentralManager::macFromAdvertisement(
    const platform::Dictionary& advertisementData) const {
  const auto* entry = platform::find(advertisementData, platform::kAdvDataManufacturerData);
  const auto* manufacturerData = entry != nullptr ? entry->data() : nullptr;
  logger_.info(fmt::format(
      "Advertisement Data during hanlde peripheral: {} Local name: {} ",
      manufacturerData != nullptr ? description(platform::ByteView(*manufacturerData)) : "(null)",
      platform::textForKey(advertisementData, platform::kAdvDataLocalName).value_or("")));
  if (manufacturerData == nullptr || manufacturerData->size() < kMacOffset + kMacLength) {
    return std::string(kUnknownMac);
  }
  mbmodel::MBDataReader reader(*manufacturerData);
  return reader.rePos(kMacOffset).readMACAddressString();
}

void MBCentralManager::doConnectWithPeripheral(const std::shared_ptr<MBPeripheral>& peripheral) {
  if (!macToLock_.empty() && !equalIgnoringCase(macToLock_, peripheral->mac())) {
    logger_.warning(fmt::format("Skipping band due to lock. Locked to {} found {}", macToLock_,
                                peripheral->mac()));
    return;
  }
  setState(SessionState::connecting);
  if (peripheral->isConnected()) {
    setState(SessionState::connected);
    return;
  }
  peripheral->connectWithBlock([weak = weakSelf(*this)](const ErrorOrNone& error) {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    if (error) {
      self->logger_.error(fmt::format("Error connecting to peripheral. {}", description(error)));
      self->setState(SessionState::idle);
      return;
    }
    self->setState(SessionState::connected);
    self->lastDisconnectError_ = 0;
    self->handleAfterConnect();
  });
}

void MBCentralManager::centralManagerDidConnectPeripheral(
    platform::CentralManager& central, const std::shared_ptr<platform::Peripheral>& peripheral) {
  YMSCBCentralManager::centralManagerDidConnectPeripheral(central, peripheral);
  logger_.info("Peripheral successfully connected :)");
}

void MBCentralManager::centralManagerProblemChanged(platform::CentralManager& /*central*/) {
  statusMayHaveChanged();
}

void MBCentralManager::handleAfterConnect() {
  for (const auto& band : bands()) {
    if (notificationActive_) {
      const auto mode = pendingAlertMode_;
      checkLeParamsAndSendWith(mode, band);
    }
    if (isSetTimeActive_ && pendingDate_) {
      handleTimeChange(*pendingDate_);
    }
    if (isClockSyncActive_) {
      writePresentTime(band);
    }
    if (heartRateActive_) {
      if (heartRateRequested_) {
        kickResetWatchdogWithInterval(kMeasuringWatchdogSeconds);
      } else {
        sendHeartRateRequest(band, pendingHrMode_);
      }
    }
    if (stepsActive_) {
      readSteps(band);
    }
  }
}

// --- Letting go and coming back ---

void MBCentralManager::centralManagerDidDisconnectPeripheral(
    platform::CentralManager& central, const std::shared_ptr<platform::Peripheral>& peripheral,
    const ErrorOrNone& error) {
  YMSCBCentralManager::centralManagerDidDisconnectPeripheral(central, peripheral, error);
  // The base class handles it in a turn of the main queue; this comes after it.
  platform().runLoop.mainQueue().async([weak = weakSelf(*this), peripheral, error] {
    if (const auto self = weak.lock()) {
      self->handleDisconnection(peripheral, error);
    }
  });
}

void MBCentralManager::handleDisconnection(const std::shared_ptr<platform::Peripheral>& peripheral,
                                           const ErrorOrNone& error) {
  setState(SessionState::idle);
  const long code = error ? error->code : 0;
  if (error) {
    logger_.warning(fmt::format("Central manager status has changed -> DISCONNECT ({})", code));
  }
  const auto band = std::static_pointer_cast<MBPeripheral>(findPeripheral(peripheral));
  if (band) {
    // However the link ended: a radio that goes away without being switched off ends it without an
    // error, and the band asks for the key again on the next one.
    band->authService().resetAuthorization();
  }
  if (code == 0) {
    // The link's end was wanted: nothing connects it again, whatever is still asked for.
    lastDisconnectError_ = 0;
    if (std::exchange(connectsAnew_, false)) {
      connectAnyBand();
    }
    return;
  }
  logger_.warning(fmt::format(
      "Ready for connect callback after err. HrActive:{} HrReqstd:{} notifActive:{} stepsActive:{} "
      "stepExtraTime:{} connectedMode:{} SetTimeActive:{}",
      yesOrNo(heartRateActive_), yesOrNo(heartRateRequested_), yesOrNo(notificationActive_),
      yesOrNo(stepsActive_), yesOrNo(stepExtraTime_), yesOrNo(isConnectedMode_),
      yesOrNo(isSetTimeActive_)));
  if (!band || !hasWorkFor(*band)) {
    return;
  }
  if (code == platform::bluetooth_error::peripheralDisconnected && lastDisconnectError_ == code) {
    // A band that does not accept our key ends each link like this. The code stays remembered, so
    // that only a connection that succeeds, or another end, gives it a new chance.
    logger_.warning("Double auth error, skipping possible loop");
    return;
  }
  doConnectWithPeripheral(band);
  lastDisconnectError_ = code;
}

/// A band whose battery was never read is always worth a connection.
bool MBCentralManager::hasWorkFor(const MBPeripheral& band) const {
  return notificationActive_ || heartRateActive_ || !band.batteryInfo() || stepsActive_ ||
         isConnectedMode_ || isSetTimeActive_ || isClockSyncActive_;
}

void MBCentralManager::disconnectMi() {
  if (stepsActive_) {
    postSteps(kNoSteps);
  }
  heartRateActive_ = false;
  notificationActive_ = false;
  heartRateRequested_ = false;
  stepsActive_ = false;
  stepExtraTime_ = false;
  isSetTimeActive_ = false;
  isClockSyncActive_ = false;
  connectsAnew_ = false;
  firstAlertPending_ = true;
  pendingHrMode_ = 0;
  pendingAlertMode_ = noAlert();
  disconnectTimer_.reset();
  for (const auto& band : bands()) {
    if (band->isConnected()) {
      band->disconnect();
    }
    band->authService().resetAuthorization();
  }
  stopScan();
}

void MBCentralManager::kickResetWatchdog() { kickResetWatchdogWithInterval(kWatchdogSeconds); }

void MBCentralManager::kickResetWatchdogWithInterval(int interval) {
  disconnectTimer_ = platform().runLoop.persistentTimer(seconds(interval), kWatchdogIdentifier,
                                                        [this] { watchdogDisconnect(); });
}

void MBCentralManager::watchdogDisconnect() {
  if (isConnectedMode_) {
    logger_.info("Connected mode, not disconnecting");
    stepsActive_ = false;
    stepExtraTime_ = false;
  } else if (stepsActive_ && !stepExtraTime_) {
    stepExtraTime_ = true;
    logger_.warning("Should already disconnect, but give some more time ...");
    kickResetWatchdog();
  } else {
    disconnectMi();
  }
}

void MBCentralManager::connectedMode(bool on) {
  if (on && !isConnectedMode_) {
    for (const auto& band : bands()) {
      doConnectWithPeripheral(band);
    }
  } else if (!on && isConnectedMode_) {
    kickResetWatchdogWithInterval(kLeaveConnectedModeSeconds);
  }
  isConnectedMode_ = on;
}

// --- Serving requests ---

void MBCentralManager::serveEveryBand(
    const std::function<void(const std::shared_ptr<MBPeripheral>& band)>& action) {
  for (const auto& band : bands()) {
    if (band->isInitialized()) {
      action(band);
    } else if (!band->isConnected()) {
      doConnectWithPeripheral(band);
    } else {
      startRetryTimer(band);
    }
  }
}

void MBCentralManager::startRetryTimer(const std::shared_ptr<MBPeripheral>& band) {
  // There is one wait at a time, or a burst of requests would be served again and again: this ends
  // the one that runs, and its start takes the place of any that is still to come before it.
  retryTimer_.reset();
  platform().runLoop.mainQueue().after(
      kRetryDelay, [weak = weakSelf(*this), weakBand = std::weak_ptr(band)] {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        self->retryCount_ = 0;
        self->retryTimer_ = self->platform().runLoop.scheduledTimer(
            kRetryInterval, true,
            [manager = self.get(), weakBand] { manager->handleRetry(weakBand.lock()); });
      });
}

void MBCentralManager::handleRetry(const std::shared_ptr<MBPeripheral>& band) {
  if (retryCount_ >= kRetries) {
    logger_.warning("No retries left for request...");
    retryTimer_.reset();
    return;
  }
  ++retryCount_;
  if (band && band->isInitialized()) {
    retryTimer_.reset();
    handleAfterConnect();
  }
}

// --- Alerts ---

void MBCentralManager::sendAlertToPeripheralsWithMode(const std::shared_ptr<MBVibrateModel>& mode) {
  logger_.info(fmt::format("Request for Alert vibration with mode {} ...",
                           mode ? mode->description(platform().log) : "(null)"));
  for (const auto& band : bands()) {
    band->ancsAlertService().setShouldStop(false);
    band->alertService().setShouldStop(false);
  }
  if (state_ == SessionState::poweredOff || !mode || mode->iconId() == 0) {
    return;
  }
  if (mode->repeat() == 0) {
    logger_.error("No need to forward (possible) notification");
    return;
  }
  notificationActive_ = true;
  pendingAlertMode_ = mode;
  if (ymsPeripherals().empty()) {
    initialConnectionRequest([] {});
    return;
  }
  kickResetWatchdog();
  serveEveryBand([this, &mode](const auto& band) { checkLeParamsAndSendWith(mode, band); });
}

void MBCentralManager::checkLeParamsAndSendWith(const std::shared_ptr<MBVibrateModel>& mode,
                                                const std::shared_ptr<MBPeripheral>& band) {
  if (!mode) {
    return;
  }
  band->controlService().checkAndSetLowLEParamsWithBlock(
      [this, mode, band] { vibrationRequest(mode, band); });
  constexpr std::uint64_t kShort = 10;
  constexpr std::uint64_t kLong = 100;
  constexpr int kShortWatchdogSeconds = 20;
  constexpr int kLongWatchdogSeconds = 180;
  kickResetWatchdogWithInterval(mode->repeat() < kShort   ? kShortWatchdogSeconds
                                : mode->repeat() <= kLong ? kWatchdogSeconds
                                                          : kLongWatchdogSeconds);
}

float MBCentralManager::alertDelay(const MBPeripheral& band) const {
  return firstAlertPending_ && (!isConnectedMode_ || band.shouldUpdateLEParams()) ? kFirstAlertDelay
                                                                                  : 0.0F;
}

void MBCentralManager::vibrationRequest(const std::shared_ptr<MBVibrateModel>& mode,
                                        const std::shared_ptr<MBPeripheral>& band) {
  if (isPlainIcon(mode->iconId())) {
    const float delay = mode->iconId() == kUndelayedIcon ? 0.0F : alertDelay(*band);
    band->alertService().doSendNotificationWithMode(mode, delay);
    firstAlertPending_ = false;
    // notificationActive stays up, deliberately: such an alert is sent without an answer, so after
    // a lost link it is repeated rather than lost.
  } else if (mode->iconId() == kRepeatedIcon) {
    platform().runLoop.globalQueue().async(
        [weak = weakSelf(*this), mode, weakBand = std::weak_ptr(band)] {
          if (const auto self = weak.lock()) {
            self->sendRepeatedAlert(mode, weakBand, kRepeatedAlerts);
          }
        });
  } else {
    sendNotificationAlert(mode, band);
  }
}

void MBCentralManager::sendRepeatedAlert(const std::shared_ptr<MBVibrateModel>& mode,
                                         const std::weak_ptr<MBPeripheral>& weakBand,
                                         int sendsLeft) {
  const auto band = weakBand.lock();
  if (sendsLeft == 0 || !band || band->ancsAlertService().shouldStop()) {
    return;
  }
  band->ancsAlertService().doSendNotificationWithMode(
      mode, 0.0F, [logger = logger_](const ErrorOrNone& error) {
        if (error) {
          logger.warning(fmt::format("Alert request Err: {} ...", description(error)));
        }
      });
  platform().runLoop.globalQueue().after(kRepeatedAlertInterval,
                                         [weak = weakSelf(*this), mode, weakBand, sendsLeft] {
                                           if (const auto self = weak.lock()) {
                                             self->sendRepeatedAlert(mode, weakBand, sendsLeft - 1);
                                           }
                                         });
}

void MBCentralManager::sendNotificationAlert(const std::shared_ptr<MBVibrateModel>& mode,
                                             const std::shared_ptr<MBPeripheral>& band) {
  auto textAlert = std::make_shared<MBVibrateModel>(1, kTextIcon, kTextPattern, mode->text());
  band->ancsAlertService().doSendNotificationWithMode(
      mode, alertDelay(*band),
      [weak = weakSelf(*this), weakBand = std::weak_ptr(band), mode,
       textAlert = std::move(textAlert)](const ErrorOrNone& error) {
        const auto self = weak.lock();
        const auto target = weakBand.lock();
        if (!self || !target) {
          return;
        }
        if (error) {
          self->logger_.warning(fmt::format("Alert request Err: {} ...", description(error)));
          return;
        }
        if (mode->iconId() == kTextOnlyIcon) {
          return;
        }
        // The band shows the icon by now; what follows vibrates without showing another.
        mode->setIconId(1);
        target->alertService().doSendNotificationWithMode(mode, kPlainAlertDelay);
        if (!textAlert->text()) {
          return;
        }
        self->platform().runLoop.mainQueue().after(kTextAlertDelay, [weakBand, textAlert] {
          if (const auto later = weakBand.lock()) {
            later->ancsAlertService().doSendNotificationWithMode(textAlert, 0.0F,
                                                                 [](const ErrorOrNone&) {});
          }
        });
      });
  firstAlertPending_ = false;
  notificationActive_ = false;
}

void MBCentralManager::stopVibration() {
  constexpr std::uint64_t kLongRepeat = 11;
  if (pendingAlertMode_->repeat() >= kLongRepeat) {
    // Stopped once, a long alert is not played in full again at the next connection.
    pendingAlertMode_->setRepeat(1);
  }
  kickResetWatchdogWithInterval(kStopWatchdogSeconds);
  notificationActive_ = false;
  for (const auto& band : bands()) {
    band->ancsAlertService().doStopVibrate();
    band->alertService().doStopVibrate();
  }
}

// --- Measurements ---

void MBCentralManager::requestHeartRequestWithMode(std::int64_t mode) {
  logger_.info(fmt::format("Request for Heart Rate measurement with mode {} ...",
                           static_cast<std::uint64_t>(mode)));
  if (state_ == SessionState::poweredOff) {
    return;
  }
  if (mode != kHeartRateAgain) {
    pendingHrMode_ = mode;
  }
  heartRateActive_ = true;
  serveEveryBand([this](const auto& band) { sendHeartRateRequest(band, pendingHrMode_); });
  kickResetWatchdog();
}

void MBCentralManager::sendHeartRateRequest(const std::shared_ptr<MBPeripheral>& band,
                                            std::int64_t mode) {
  if (mode == kHeartRateWithBuzz) {
    checkLeParamsAndSendWith(std::make_shared<MBVibrateModel>(1, kMeasuringIcon, 0, std::nullopt),
                             band);
  }
  band->heartService().doRequestHeartRate(mode, [weak = weakSelf(*this)](const ErrorOrNone& error) {
    // A write that failed started nothing; the next connection asks again.
    if (const auto self = weak.lock(); self && !error) {
      self->heartRateRequested_ = true;
    }
  });
}

void MBCentralManager::writeHeartRate(std::int64_t value) {
  shellCompanion_->sendMessageName("writeHeartRate", {{"heartRate", value}});
}

void MBCentralManager::requestSteps() {
  logger_.info("Request for Step measurement ...");
  if (state_ == SessionState::poweredOff) {
    return;
  }
  stepsActive_ = true;
  serveEveryBand([this](const auto& band) { readSteps(band); });
  kickResetWatchdog();
}

void MBCentralManager::readSteps(const std::shared_ptr<MBPeripheral>& band) {
  band->controlService().readReatimeStepsWithBlock(
      [weak = weakSelf(*this)](const std::optional<mbmodel::MBActivityModel>& activity,
                               const ErrorOrNone&) {
        const auto self = weak.lock();
        if (!self) {
          return;
        }
        const bool isWaitedFor = std::exchange(self->stepsActive_, false);
        if (activity) {
          self->postSteps(activity->steps());
        } else if (isWaitedFor) {
          // Whoever gave the request up has said so already.
          self->postSteps(kNoSteps);
        }
      });
}

void MBCentralManager::postSteps(std::uint64_t steps) {
  platform().distributedNotificationCenter.post(
      {std::string(kSteps), std::nullopt, {{"steps", steps}}});
}

void MBCentralManager::getBatteryInfo() {
  for (const auto& band : bands()) {
    if (band->isConnected()) {
      band->controlService().readBatteryInfoWithBlock(
          [weakBand = std::weak_ptr(band)](const auto& info, const ErrorOrNone& error) {
            if (const auto target = weakBand.lock(); target && !error) {
              target->setBatteryInfo(info);
            }
          });
    }
  }
}

// --- Time ---

void MBCentralManager::setDateTime(platform::Date date) {
  isSetTimeActive_ = true;
  pendingDate_ = date;
  handleTimeChange(date);
}

/// The date that starts the band's stopwatch: today at 00:00:01 local time.
platform::Date MBCentralManager::stopwatchStart() const {
  auto components = platform::componentsFromDate(platform().clock.now(), platform().localTimeZone);
  components.hour = 0;
  components.minute = 0;
  components.second = 1;
  return platform::dateFromComponents(components, platform().localTimeZone);
}

void MBCentralManager::handleTimeChange(platform::Date date) {
  for (const auto& band : bands()) {
    if (!band->isConnected()) {
      doConnectWithPeripheral(band);
    } else if (date == stopwatchStart()) {
      writePendingDate(band);
    } else {
      readStopwatch(band);
    }
  }
}

void MBCentralManager::readStopwatch(const std::shared_ptr<MBPeripheral>& band) {
  band->controlService().readTimetWithBlock(
      [weak = weakSelf(*this), weakBand = std::weak_ptr(band), start = stopwatchStart()](
          const std::optional<platform::Date>& bandTime, const ErrorOrNone&) {
        const auto self = weak.lock();
        const auto target = weakBand.lock();
        if (!self || !target) {
          return;
        }
        if (bandTime) {
          self->postStopwatch(*bandTime - start);
        }
        self->writePendingDate(target);
      });
}

void MBCentralManager::postStopwatch(platform::TimeInterval elapsed) {
  constexpr platform::TimeInterval kDay = std::chrono::hours(24);
  if (elapsed < platform::TimeInterval::zero()) {
    // Midnight has passed since the start: the band's date is yesterday's, the start today's.
    elapsed = elapsed % kDay + kDay;
  }
  const auto total = std::chrono::duration_cast<seconds>(elapsed).count();
  platform().distributedNotificationCenter.post(
      {std::string(kStopwatch),
       std::nullopt,
       {{"timeDifference",
         fmt::format("{:02}:{:02}:{:02}", total / 3600, total / 60 % 60, total % 60)}}});
}

void MBCentralManager::writePendingDate(const std::shared_ptr<MBPeripheral>& band) {
  band->controlService().writeTime(pendingDate_,
                                   [weak = weakSelf(*this)](const ErrorOrNone& error) {
                                     // A write that failed, on a link just lost or not set up yet,
                                     // is still to be done: the next connection does it.
                                     if (const auto self = weak.lock(); self && !error) {
                                       self->isSetTimeActive_ = false;
                                     }
                                   });
}

void MBCentralManager::syncClock() {
  logger_.info("Request for Clock synchronisation ...");
  if (state_ == SessionState::poweredOff) {
    return;
  }
  isClockSyncActive_ = true;
  if (bands().empty()) {
    startBandConnection();
    return;
  }
  kickResetWatchdog();
  serveEveryBand([this](const auto& band) { writePresentTime(band); });
}

void MBCentralManager::writePresentTime(const std::shared_ptr<MBPeripheral>& band) {
  band->controlService().writeTime(platform().clock.now(),
                                   [weak = weakSelf(*this)](const ErrorOrNone& error) {
                                     if (const auto self = weak.lock(); self && !error) {
                                       self->isClockSyncActive_ = false;
                                     }
                                   });
}

// --- A new pairing key ---

void MBCentralManager::authenticateAnew() {
  const auto known = bands();
  const bool isLinked =
      std::ranges::any_of(known, [](const auto& band) { return band->isConnected(); });
  disconnectMi();
  authState_ = {};
  lastDisconnectError_ = 0;
  statusMayHaveChanged();
  if (state_ == SessionState::poweredOff) {
    return;  // the connection that the radio's return makes is the one that is wanted
  }
  if (isLinked) {
    connectsAnew_ = true;
  } else {
    connectAnyBand();
  }
}

void MBCentralManager::connectAnyBand() {
  const auto known = bands();
  if (known.empty()) {
    startBandConnection();
    return;
  }
  kickResetWatchdog();
  for (const auto& band : known) {
    doConnectWithPeripheral(band);
  }
}

// --- Lock and report ---

void MBCentralManager::lockToMac() {
  const auto known = bands();
  if (known.empty()) {
    return;
  }
  const std::string mac = known.front()->mac();
  const auto error = platform().fileManager.writeAtomically(platform().systemInfo.lockFilePath,
                                                            platform::bytesOfText(mac));
  if (error) {
    logger_.warning(fmt::format("Could not write lock file: {} ", error->localizedDescription));
  }
  // Last, so that who is told of a lock can rely on its file.
  setMacToLock(mac);
}

void MBCentralManager::removeLock() {
  const auto error = platform().fileManager.removeItemAtPath(platform().systemInfo.lockFilePath);
  if (error) {
    logger_.warning(fmt::format("Could not delete file: {} ", error->localizedDescription));
  }
  setMacToLock("");
  startBandConnection();
}

void MBCentralManager::sendPeripheralCapabilities() {
  // Every entry ends with a blank, deliberately, so that those of several bands stay apart.
  std::string battery;
  std::string steps;
  std::string distance;
  std::string calories;
  for (const auto& band : bands()) {
    if (band->batteryInfo() && band->batteryInfo()->level() != 0) {
      battery += fmt::format("{}% ", band->batteryInfo()->level());
    }
    if (band->activity() && band->activity()->steps() != 0) {
      steps += fmt::format("{} ", band->activity()->steps());
      distance += fmt::format("{}m ", band->activity()->distance());
      calories += fmt::format("{} ", band->activity()->calories());
    }
  }
  platform().distributedNotificationCenter.post(
      {std::string(kCapabilities),
       std::nullopt,
       {{"isHealtKitSupported",
         healthKitManager_.isHealtKitAvailable() && state_ != SessionState::poweredOff},
        {"batteryStatus", battery},
        {"currentSteps", steps},
        {"currentDistance", distance},
        {"currentCalories", calories}}});
  // Called after every reading, so what observers show may have changed too.
  statusMayHaveChanged();
}

}  // namespace wrixel2::mbble
