// A session with a band whose radio does whatever a radio may do, while requests come in.

#include <array>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"
#include "fuzz/Check.h"
#include "fuzz/Drive.h"
#include "fuzz/Input.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::fuzz {
namespace {

using platform::CentralState;
using platform::simulated::RadioOperation;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr std::string_view kSecret = "only for the owner's eyes";

class FixedKey final : public mbservices::KeyProvider {
  std::string getMiFitAuthId() override { return std::string(band::kDefaultPairingKey); }
};

class Session final : private band::BandObserver {
 public:
  explicit Session(Input& input) {
    constexpr int kPaces[] = {0, 1, 20, 700};
    // With nothing, little or much time between a request and its answer.
    const auto slow = milliseconds(input.oneOf(kPaces));
    phone_.radio.timings = {.advertisingInterval = milliseconds(100),
                            .connect = slow,
                            .exchange = slow,
                            .writeCommand = slow / 2,
                            .notification = slow / 2};
    phone_.radio.respondsToRetrieveConnectedPeripherals = input.flag();
    band_ = std::make_shared<band::VirtualBand>(phone_.handle());
    phone_.radio.addBand(band_);
    band_->addObserver(*this);
    manager_ = mbble::MBCentralManager::create(phone_.handle(), key_, healthKit_, {});
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() override {
    manager_.reset();
    phone_.runLoop.runUntilIdle();
    band_->removeObserver(*this);
  }

  void happen(Input& input) {
    switch (input.below(5)) {
      case 0:
        request(input);
        break;
      case 1:
        linkEvent(input);
        break;
      case 2:
        notification(input);
        break;
      case 3:
        fault(input);
        break;
      default:
        phone_.runLoop.runFor(input.pause());
        break;
    }
    phone_.runLoop.runFor(milliseconds(input.below(4)));
    checkAlways();
  }

  /// After whatever has happened: what is given up is given up, and a band that is well again is
  /// reached, by the second alert (the first may find the end of an earlier link).
  void recover() {
    band_->setIsInRange(true);
    band_->setPairingKey(band::kDefaultPairingKey);
    band_->refuseAuthentication(0);
    phone_.radio.setState(CentralState::poweredOn);
    static_cast<void>(phone_.radio.takeConnectFailure());
    // Another program's link would keep it from advertising.
    phone_.radio.dropAtOperation(*band_, 1, 6);
    static_cast<void>(band_->drop(6));
    band_->setHeartRate(60);
    phone_.runLoop.runFor(minutes(1));
    if (!manager_->macToLock().empty()) {
      manager_->removeLock();
    }
    manager_->connectedMode(false);
    manager_->disconnectMi();
    phone_.runLoop.runUntilIdle();
    check(!manager_->isNotificationActive() && !manager_->isStepsActive() &&
              !manager_->isHeartRateActive() && !manager_->isHeartRateRequested() &&
              !manager_->isSetTimeActive() && !manager_->isStepExtraTime(),
          "no flag is left after everything was given up");
    // Each failure that was planned for an operation may cost one more alert.
    vibrations_ = 0;
    for (int left = 2 + plannedFailures_; left > 0 && vibrations_ == 0; --left) {
      alert(1, 5);
      phone_.runLoop.runFor(minutes(5));
    }
    check(vibrations_ > 0, "a band that is well again is reached");
    checkAlways();
  }

 private:
  void alert(std::uint64_t repeat, std::uint64_t icon) {
    manager_->sendAlertToPeripheralsWithMode(
        std::make_shared<mbmodel::MBVibrateModel>(repeat, icon, 3, std::string(kSecret)));
  }
  void request(Input& input) {
    switch (input.below(14)) {
      case 0:
      case 1:
        alert(input.byte(), input.below(32));
        break;
      case 2:
        manager_->stopVibration();
        break;
      case 3:
        manager_->requestHeartRequestWithMode(static_cast<std::int64_t>(input.below(5)) - 1);
        break;
      case 4:
        manager_->requestSteps();
        break;
      case 5:
        manager_->setDateTime(input.flag()
                                  ? phone_.clock.now()
                                  : platform::Date(seconds(input.integer() % 8'000'000'000)));
        break;
      case 6:
        manager_->getBatteryInfo();
        break;
      case 7:
        manager_->connectedMode(input.flag());
        break;
      case 8:
        manager_->disconnectMi();
        break;
      case 9:
        manager_->lockToMac();
        break;
      case 10:
        manager_->removeLock();
        break;
      case 11:
        manager_->initialConnectionRequest([] {});
        break;
      case 12:
        manager_->watchdogDisconnect();
        break;
      default:
        phone_.distributedNotificationCenter.postFromOutside(
            {"org.corvale.wrixel2.capReq", std::nullopt, input.dictionary({}, 1)});
        break;
    }
  }
  void linkEvent(Input& input) {
    constexpr CentralState kStates[] = {CentralState::unknown,     CentralState::resetting,
                                        CentralState::unsupported, CentralState::unauthorized,
                                        CentralState::poweredOff,  CentralState::poweredOn,
                                        CentralState::poweredOn,   CentralState::poweredOn};
    switch (input.below(10)) {
      case 0:
        static_cast<void>(band_->drop(input.flag() ? 6 : 7));
        break;
      case 1:
        band_->setIsInRange(input.flag());
        break;
      case 2:
        band_->refuseAuthentication(static_cast<unsigned>(input.below(8)));
        break;
      case 3:
        band_->setPairingKey(input.flag() ? band::kDefaultPairingKey : "another key");
        break;
      case 4:
        phone_.radio.connectBySomebodyElse(*band_);
        break;
      case 5:
        phone_.radio.setState(input.oneOf(kStates));
        break;
      case 6:
        band_->pressButton();
        break;
      case 7:
        band_->setSteps(static_cast<std::uint32_t>(input.integer()));
        break;
      case 8:
        band_->setHeartRate(input.byte());
        break;
      default: {
        std::array<std::uint8_t, 8> parameters{};
        for (auto& byte : parameters) {
          byte = input.byte();
        }
        band_->setConnectionParameters(parameters);
        break;
      }
    }
  }
  /// What a band may say at any time, in its form or not.
  void notification(Input& input) {
    const auto& services = band::bandServices();
    const auto& characteristics = services[input.below(services.size())].characteristics;
    const auto& characteristic = characteristics[input.below(characteristics.size())];
    platform::Bytes value;
    if (characteristic.uuid == band::kAuthInfo && input.flag()) {
      value = {0x10, static_cast<std::uint8_t>(input.below(4)),
               static_cast<std::uint8_t>(input.below(6))};
      if (input.flag()) {
        value.resize(19, input.byte());
      }
    } else {
      value = input.bytes(24);
    }
    phone_.radio.injectNotification(*band_, characteristic.uuid, value);
  }
  void fault(Input& input) {
    constexpr RadioOperation kOperations[] = {
        RadioOperation::discoverServices, RadioOperation::discoverCharacteristics,
        RadioOperation::read, RadioOperation::write, RadioOperation::setNotify};
    switch (input.below(3)) {
      case 0: {
        const auto operation = input.oneOf(kOperations);
        ++plannedFailures_;
        phone_.radio.failNext(operation, {static_cast<long>(input.below(20)), "It went wrong"});
        break;
      }
      case 1:
        phone_.radio.dropAtOperation(*band_, 1 + static_cast<unsigned>(input.below(40)),
                                     static_cast<long>(input.below(9)));
        break;
      default:
        phone_.radio.failNextConnect({static_cast<long>(1 + input.below(15)), "No connection"});
        break;
    }
  }
  void checkAlways() {
    check(phone_.runLoop.persistentTimers("com.corvale.wrixel2.wd").size() <= 1,
          "there is one watchdog at most");
    check(manager_->bands().size() <= 1, "one band is one band");
    for (const auto& known : manager_->bands()) {
      check(known->mac().size() == 17, "an address has 17 characters");
      check(!known->isInitialized() || known->isConnected(), "a band without a link is not set up");
    }
    for (const auto& line : phone_.log.lines()) {
      check(line.text.find(kSecret) == std::string::npos, "no message text in the log");
      check(line.text.find(band::kDefaultPairingKey) == std::string::npos, "no key in the log");
    }
    phone_.log.clear();
    phone_.distributedNotificationCenter.clearPostings();
    phone_.messageCenters.clearSentMessages();
    // What a measurement of 0 and a refusal ask for later, the pauses of alerts, and no more.
    check(phone_.runLoop.pendingTimers() < 600, "timers do not pile up");
  }
  void bandDidVibrate(unsigned /*on*/, unsigned /*off*/, unsigned /*count*/) override {
    ++vibrations_;
  }

  platform::simulated::SimulatedPlatform phone_;
  FixedKey key_;
  mbble::MBHealthKitManager healthKit_{phone_.healthStore, phone_.systemInfo, phone_.clock,
                                       phone_.log};
  std::shared_ptr<band::VirtualBand> band_;
  std::shared_ptr<mbble::MBCentralManager> manager_;
  int plannedFailures_ = 0;
  int vibrations_ = 0;
};

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  Session session(input);
  drive(session, input, 60);
  return 0;
}
