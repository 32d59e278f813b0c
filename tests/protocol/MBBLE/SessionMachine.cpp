#include "tests/protocol/MBBLE/SessionMachine.h"

#include <algorithm>

#include <fmt/format.h>

#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBModel/MBVibrateModel.h"
#include "tests/protocol/MBBLE/SessionModel.h"

namespace wrixel2::mbble {
namespace {

using Kind = SessionStep::Kind;
using platform::LogLevel;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::string_view kOtherAddress = "c8:0f:10:00:00:09";
constexpr std::string_view kWatchdog = "com.corvale.wrixel2.wd";

}  // namespace

SessionMachine::SessionMachine() {
  phone_.radio.timings = {.advertisingInterval = milliseconds(100),
                          .connect = milliseconds(0),
                          .exchange = milliseconds(0),
                          .writeCommand = milliseconds(0),
                          .notification = milliseconds(0)};
  band_ = std::make_shared<band::VirtualBand>(phone_.handle());
  phone_.radio.addBand(band_);
  manager_ = MBCentralManager::create(phone_.handle(), key_, healthKit_, {});
  phone_.runLoop.runUntilIdle();
  look();
}

SessionMachine::~SessionMachine() {
  manager_.reset();
  phone_.runLoop.runUntilIdle();
}

void SessionMachine::take(const SessionStep& step) {
  phone_.runLoop.runFor(microseconds(7));
  const auto reportsBefore = capabilityReports();
  request(step);
  phone_.runLoop.runUntilIdle();
  if (step.kind == Kind::capabilities) {
    view_.capabilityAnswers += static_cast<int>(capabilityReports() - reportsBefore);
  }
  look();
}

std::size_t SessionMachine::capabilityReports() const {
  return phone_.distributedNotificationCenter.postings("org.corvale.wrixel2.capabilities").size();
}

void SessionMachine::request(const SessionStep& step) {
  const auto asNumber = [](std::int64_t value) { return static_cast<std::uint64_t>(value); };
  switch (step.kind) {
    case Kind::alert:
      manager_->sendAlertToPeripheralsWithMode(std::make_shared<mbmodel::MBVibrateModel>(
          asNumber(step.first), asNumber(step.second), 3, "a text"));
      break;
    case Kind::stop:
      manager_->stopVibration();
      break;
    case Kind::heartRate:
      manager_->requestHeartRequestWithMode(step.first);
      break;
    case Kind::steps:
      manager_->requestSteps();
      break;
    case Kind::time:
      manager_->setDateTime(phone_.clock.now());
      break;
    case Kind::battery:
      manager_->getBatteryInfo();
      break;
    case Kind::connectedMode:
      manager_->connectedMode(step.first != 0);
      break;
    case Kind::disconnect:
      manager_->disconnectMi();
      break;
    case Kind::lock:
      manager_->lockToMac();
      break;
    case Kind::unlock:
      manager_->removeLock();
      break;
    case Kind::lockElsewhere:
      phone_.fileManager.addFile(phone_.systemInfo.lockFilePath, kOtherAddress);
      break;
    case Kind::capabilities:
      phone_.distributedNotificationCenter.postFromOutside(
          {"org.corvale.wrixel2.capReq", std::nullopt, {}});
      break;
    case Kind::scan:
      manager_->initialConnectionRequest([] {});
      break;
    case Kind::inRange:
      band_->setIsInRange(step.first != 0);
      break;
    case Kind::drop:
      static_cast<void>(band_->drop(step.first));
      break;
    case Kind::refuse:
      band_->refuseAuthentication(static_cast<unsigned>(step.first));
      break;
    case Kind::dropDuringSetup:
      phone_.radio.dropAtOperation(*band_, static_cast<unsigned>(step.first), step.second);
      break;
    case Kind::failConnect:
      phone_.radio.failNextConnect({10, "The connection failed"});
      break;
    case Kind::power:
      phone_.radio.setState(static_cast<platform::CentralState>(step.first));
      break;
    case Kind::somebodyElse:
      phone_.radio.connectBySomebodyElse(*band_);
      break;
    case Kind::wait:
      phone_.runLoop.runFor(milliseconds(step.first));
      break;
  }
}

/// Counts what was logged and posted since the last time, and forgets it.
void SessionMachine::look() {
  view_.state = static_cast<int>(manager_->state());
  view_.isNotificationActive = manager_->isNotificationActive();
  view_.isStepsActive = manager_->isStepsActive();
  view_.isStepExtraTime = manager_->isStepExtraTime();
  view_.isHeartRateActive = manager_->isHeartRateActive();
  view_.isHeartRateRequested = manager_->isHeartRateRequested();
  view_.isSetTimeActive = manager_->isSetTimeActive();
  view_.isConnectedMode = manager_->isConnectedMode();
  view_.isScanning = manager_->isScanning();
  view_.macToLock = manager_->macToLock();
  view_.watchdog.reset();
  for (const auto& timer : phone_.runLoop.persistentTimers(kWatchdog)) {
    view_.watchdog = std::chrono::duration_cast<microseconds>(timer.remaining).count();
  }
  const auto bands = manager_->bands();
  view_.band = bands.empty() ? "" : bands.front()->mac();
  view_.isConnected = !bands.empty() && bands.front()->isConnected();
  view_.isInitialized = !bands.empty() && bands.front()->isInitialized();
  view_.link = static_cast<int>(band_->link());
  view_.connections +=
      static_cast<int>(phone_.log.count(LogLevel::info, "Peripheral successfully connected :)"));
  view_.givenUpRetries +=
      static_cast<int>(phone_.log.count(LogLevel::warning, "No retries left for request..."));
  for (const auto& posting :
       phone_.distributedNotificationCenter.postings("org.corvale.wrixel2.steps")) {
    const bool isNone = platform::intForKey(posting.userInfo, "steps") == 999'999;
    ++(isNone ? view_.postingsWithoutSteps : view_.stepPostings);
  }
  phone_.log.clear();
  phone_.distributedNotificationCenter.clearPostings();
  phone_.messageCenters.clearSentMessages();
}

std::string SessionMachine::fault(const SessionStep& step) const {
  if (phone_.runLoop.persistentTimers(kWatchdog).size() > 1) {
    return "there is more than one watchdog";
  }
  if (manager_->bands().size() > 1) {
    return "one band is known more than once";
  }
  const bool isRaised = view_.isStepsActive || view_.isHeartRateActive;
  if (step.kind == Kind::disconnect &&
      (isRaised || view_.isNotificationActive || view_.isHeartRateRequested ||
       view_.isSetTimeActive || view_.isStepExtraTime || view_.watchdog || view_.isScanning)) {
    return "something is left after everything was given up";
  }
  if (isRaised && !view_.watchdog && !view_.isConnectedMode) {
    return "a measurement waits with nothing that would end it";
  }
  return {};
}

std::optional<Disagreement> disagreement(const SessionSteps& steps) {
  SessionMachine real;
  SessionModel model;
  for (std::size_t index = 0; index < steps.size(); ++index) {
    const auto& step = steps[index];
    if (!model.takes(step)) {
      continue;
    }
    model.take(step);
    real.take(step);
    auto how = real.fault(step);
    if (how.empty() && real.view() != model.view()) {
      how = differences(real.view(), model.view());
    }
    if (!how.empty()) {
      return Disagreement{index, std::move(how)};
    }
  }
  return std::nullopt;
}

SessionSteps minimised(SessionSteps steps) {
  if (const auto found = disagreement(steps)) {
    steps.resize(found->step + 1);
  }
  // Leaves out ever smaller parts, as long as what is left still disagrees.
  for (std::size_t part = std::max<std::size_t>(steps.size() / 2, 1);; part /= 2) {
    for (std::size_t begin = 0; begin < steps.size();) {
      SessionSteps fewer = steps;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(begin);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, fewer.size() - begin)));
      if (disagreement(fewer)) {
        steps = std::move(fewer);
      } else {
        begin += part;
      }
    }
    if (part <= 1) {
      return steps;
    }
  }
}

}  // namespace wrixel2::mbble
