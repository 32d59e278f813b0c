#include "platform/linux/bluez/BluezLink.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/linux/bluez/BluezCentralContext.h"
#include "platform/linux/bluez/BluezErrors.h"

namespace wrixel2::platform::bluez {
namespace {

constexpr std::string_view kTimeoutReason = "org.bluez.Reason.Timeout";
constexpr std::string_view kRemoteReason = "org.bluez.Reason.Remote";

}  // namespace

BluezLink::BluezLink(BluezCentralContext& context, BluezLinkObserver& observer, std::string device)
    : context_(context), observer_(observer), device_(std::move(device)) {}

std::string BluezLink::path() const { return context_.pathOfDevice(device_); }

bool BluezLink::isConnectedOnBus() const {
  const auto* device = context_.objects().properties(path(), kDeviceInterface);
  return device != nullptr && boolForKey(*device, "Connected");
}

PeripheralState BluezLink::state() const {
  switch (phase_) {
    case Phase::waiting:
    case Phase::calling:
      return PeripheralState::connecting;
    case Phase::up:
    case Phase::lost:
      return PeripheralState::connected;
    case Phase::ending:
      if (!isEndTold_) {
        return PeripheralState::disconnecting;
      }
      [[fallthrough]];
    case Phase::down:
      return connectsAgain_ ? PeripheralState::connecting : PeripheralState::disconnected;
  }
  return PeripheralState::disconnected;
}

void BluezLink::connect() {
  switch (phase_) {
    case Phase::down:
      retryDelay_ = kFirstRetry;
      pursue();
      return;
    case Phase::waiting:
    case Phase::calling:
      return;
    case Phase::up:
      observer_.linkCameUp();
      return;
    case Phase::lost:
      connectsAgain_ = true;
      return;
    case Phase::ending:
      connectsAgain_ = true;
      if (timer_ == nullptr) {
        askForEnd();
      }
      return;
  }
}

void BluezLink::cancel() {
  switch (phase_) {
    case Phase::down:
      return;
    case Phase::waiting:
      endWith(std::nullopt);
      return;
    case Phase::calling:
    case Phase::up:
      wasUp_ = phase_ == Phase::up;
      phase_ = Phase::ending;
      isEndTold_ = false;
      askForEnd();
      context_.linkNeedsChanged();
      return;
    case Phase::lost:
      connectsAgain_ = false;
      endWith(std::nullopt);
      return;
    case Phase::ending:
      if (std::exchange(connectsAgain_, false) && isEndTold_) {
        observer_.linkEnded(std::nullopt);
      }
      return;
  }
}

void BluezLink::endLeftover() {
  const bool hangs = phase_ == Phase::ending && isEndTold_ && timer_ == nullptr;
  if ((phase_ == Phase::down || hangs) && isConnectedOnBus()) {
    phase_ = Phase::ending;
    wasUp_ = true;
    isEndTold_ = true;
    askForEnd();
  }
}

void BluezLink::pursue() {
  timer_.reset();
  const bool isKnown = context_.objects().properties(path(), kDeviceInterface) != nullptr;
  waitFor(isKnown ? Wait::permission : Wait::device);
}

void BluezLink::waitFor(Wait wait) {
  phase_ = Phase::waiting;
  wait_ = wait;
  context_.linkNeedsChanged();
}

void BluezLink::pauseBeforeRetry() {
  timer_ = context_.runLoop().scheduledTimer(retryDelay_, false, [this] { pursue(); });
  retryDelay_ = std::min(2 * retryDelay_, kLastRetry);
  waitFor(Wait::pause);
}

void BluezLink::permitCall() {
  phase_ = Phase::calling;
  connectPending_ = true;
  context_.bus().call({path(), kDeviceInterface, "Connect"}, kConnectTimeout,
                      [this, era = ++era_](const BluezReply& reply) {
                        if (era == era_) {
                          connectReplied(reply);
                        }
                      });
}

void BluezLink::connectReplied(const BluezReply& reply) {
  connectPending_ = false;
  if (phase_ == Phase::ending) {
    endingGoesOn();
    return;
  }
  timer_.reset();
  const bool isUp = !reply.isError() || reply.errorName == "org.bluez.Error.AlreadyConnected";
  if (isUp && isConnectedOnBus()) {
    goUp();
  } else if (isUp) {
    askWhetherConnected();
  } else if (isUnknownObject(reply)) {
    // The device was not seen for a while and was forgotten; it is known again once it is seen.
    waitFor(Wait::device);
  } else if (isRefusal(reply)) {
    fail(errorOfReply(reply));
  } else {
    pauseBeforeRetry();
  }
}

void BluezLink::askWhetherConnected() {
  context_.fetchObjects([this, era = ++era_] {
    if (era != era_ || phase_ != Phase::calling) {
      return;
    }
    if (isConnectedOnBus()) {
      goUp();
    } else {
      pauseBeforeRetry();
    }
  });
}

void BluezLink::expectAnswerSoon() {
  timer_ = context_.runLoop().scheduledTimer(kAnswerGrace, false, [this] {
    ++era_;
    connectPending_ = false;
    askWhetherConnected();
  });
}

void BluezLink::goUp() {
  timer_.reset();
  phase_ = Phase::up;
  upSince_ = context_.clock().monotonicNow();
  reason_.clear();
  observer_.linkCameUp();
  context_.linkNeedsChanged();
}

void BluezLink::fail(const Error& error) {
  phase_ = Phase::down;
  observer_.linkFailed(error);
  context_.linkNeedsChanged();
}

void BluezLink::deviceSeen() {
  if (isSearching()) {
    waitFor(Wait::permission);
  }
}

void BluezLink::deviceRemoved() {
  switch (phase_) {
    case Phase::down:
    case Phase::lost:
      return;
    case Phase::waiting:
      timer_.reset();
      waitFor(Wait::device);
      return;
    case Phase::calling:
      timer_.reset();
      forgetCalls();  // bluetoothd may never answer for an object that is gone
      waitFor(Wait::device);
      return;
    case Phase::up:
      lose();
      return;
    case Phase::ending:
      forgetCalls();
      endingGoesOn();
      return;
  }
}

void BluezLink::connectedChanged(bool isConnected) {
  if (isConnected) {
    if (phase_ == Phase::waiting && wait_ == Wait::pause) {
      pursue();  // somebody has made the link: ours for the asking
    } else if (phase_ == Phase::calling && connectPending_ && timer_ == nullptr) {
      expectAnswerSoon();
    }
  } else if (phase_ == Phase::up) {
    lose();
  } else if (phase_ == Phase::ending) {
    endingGoesOn();
  }
}

void BluezLink::disconnectedBecause(const std::string& reason) { reason_ = reason; }

void BluezLink::lose() {
  const bool isYoung = context_.clock().monotonicNow() - upSince_ < kRefusalTime;
  const bool isRemote = reason_ == kRemoteReason;
  const bool isTimeout = reason_ == kTimeoutReason;
  const bool isPeer = isRemote || (!isTimeout && isYoung);
  lossError_ = linkEndError(isPeer ? bluetooth_error::peripheralDisconnected
                                   : bluetooth_error::connectionTimeout);
  phase_ = Phase::lost;
  observer_.linkLost();
  if (isRemote || isTimeout) {
    endWith(lossError_);
  } else {
    timer_ = context_.runLoop().scheduledTimer(kPowerGrace, false, [this] { endWith(lossError_); });
  }
}

void BluezLink::askForEnd() {
  disconnectPending_ = true;
  timer_ = context_.runLoop().scheduledTimer(kEndWatchdog, false, [this] { endHangs(); });
  context_.bus().call({path(), kDeviceInterface, "Disconnect"}, kDisconnectTimeout,
                      [this, era = era_](const BluezReply&) {
                        // An error says that there was nothing to end, or that it is tried again.
                        if (era == era_ && phase_ == Phase::ending) {
                          disconnectPending_ = false;
                          endingGoesOn();
                        }
                      });
}

void BluezLink::endingGoesOn() {
  const bool isAnswered = !connectPending_ && (wasUp_ || !disconnectPending_);
  if (!isAnswered || isConnectedOnBus()) {
    return;
  }
  if (wasUp_ && !isEndTold_) {
    observer_.linkLost();
  }
  if (!isEndTold_) {
    endWith(std::nullopt);
    return;
  }
  forgetCalls();
  phase_ = Phase::down;
  timer_.reset();
  if (std::exchange(connectsAgain_, false)) {
    connect();
  }
}

void BluezLink::endHangs() {
  timer_.reset();
  forgetCalls();
  if (!isEndTold_) {
    context_.logger().warning(fmt::format("The end of the link to {} is not confirmed", path()));
    isEndTold_ = true;
    if (wasUp_) {
      observer_.linkLost();
    }
    observer_.linkEnded(std::nullopt);
  }
  if (!isConnectedOnBus()) {
    endingGoesOn();
  } else if (connectsAgain_) {
    askForEnd();
  }
}

void BluezLink::endWith(const ErrorOrNone& error) {
  forgetCalls();
  timer_.reset();
  phase_ = Phase::down;
  const bool again = std::exchange(connectsAgain_, false);
  observer_.linkEnded(error);
  context_.linkNeedsChanged();
  if (again) {
    connect();
  }
}

void BluezLink::forgetCalls() {
  ++era_;
  connectPending_ = false;
  disconnectPending_ = false;
}

void BluezLink::radioLost() {
  if (phase_ == Phase::down) {
    return;
  }
  const bool isCarrying = phase_ == Phase::up || (phase_ == Phase::ending && wasUp_ && !isEndTold_);
  const bool isTold = phase_ == Phase::ending && isEndTold_ && !connectsAgain_;
  forgetCalls();
  timer_.reset();
  phase_ = Phase::down;
  connectsAgain_ = false;
  if (isCarrying) {
    observer_.linkLost();
  }
  if (!isTold) {
    observer_.linkEnded(std::nullopt);
  }
}

void BluezLink::abandon() {
  if (phase_ == Phase::calling || phase_ == Phase::up) {
    context_.bus().send({path(), kDeviceInterface, "Disconnect"});
  }
}

}  // namespace wrixel2::platform::bluez
