#include "platform/linux/bluez/BluezScanner.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/linux/bluez/BluezErrors.h"

namespace wrixel2::platform::bluez {

BluezScanner::BluezScanner(BluezBus& bus, RunLoop& loop, const Logger& logger, Task changed)
    : bus_(bus), loop_(loop), logger_(logger), changed_(std::move(changed)) {}

void BluezScanner::want(const std::optional<Wish>& wish) {
  if (wish == wish_) {
    return;
  }
  wish_ = wish;
  endRetries();
  step();
}

void BluezScanner::step() {
  switch (phase_) {
    case Phase::idle:
      if (wish_ && retryTimer_ == nullptr) {
        setFilter();
      }
      return;
    case Phase::running:
      if (!wish_ || wish_->adapter != running_->adapter) {
        stop();
      } else if (wish_ != running_) {
        setFilter();
      }
      return;
    case Phase::filtering:
    case Phase::starting:
    case Phase::stopping:
      return;
  }
}

// Without a filter bluetoothd passes over advertisements without discoverable flags, and reports
// each device once. A limit for the signal, even the lowest, would have the kernel drop the reports
// of controllers that do not measure it.
void BluezScanner::setFilter() {
  phase_ = Phase::filtering;
  running_ = wish_;
  std::vector<BluezOption> filter = {{"Transport", "s", "le"}, {"DuplicateData", "b", true}};
  if (running_->services) {
    Array uuids;
    for (const auto& service : *running_->services) {
      uuids.emplace_back(service.longText());
    }
    filter.push_back({"UUIDs", "as", std::move(uuids)});
  }
  bus_.call(
      {running_->adapter, kAdapterInterface, "SetDiscoveryFilter", std::nullopt, std::move(filter)},
      kTimeout, [this](const BluezReply& reply) {
        if (reply.isError()) {
          // The filter only spares work; what it lets through is looked at here again.
          logFailure("The scan's filter is refused", reply);
        }
        if (wish_ || isStarted_) {
          start();
        } else {
          becomeIdle();
        }
      });
}

void BluezScanner::start() {
  phase_ = Phase::starting;
  bus_.call({running_->adapter, kAdapterInterface, "StartDiscovery"}, kTimeout,
            [this](const BluezReply& reply) {
              if (reply.isError() && !isInProgress(reply)) {
                logFailure("The scan cannot be started", reply);
                if (wish_) {
                  retryLater();
                }
                becomeIdle();
                return;
              }
              phase_ = Phase::running;
              isStarted_ = true;
              if (isDiscovering_ == false) {
                retryLater();
              }
              step();
            });
}

void BluezScanner::stop() {
  phase_ = Phase::stopping;
  endRetries();
  bus_.call({running_->adapter, kAdapterInterface, "StopDiscovery"}, kTimeout,
            [this](const BluezReply&) {
              // An error says that there was nothing to stop.
              becomeIdle();
            });
}

void BluezScanner::becomeIdle() {
  phase_ = Phase::idle;
  running_.reset();
  isStarted_ = false;
  step();
  if (isIdle()) {
    changed_();
  }
}

void BluezScanner::retryLater() {
  retryTimer_ = loop_.scheduledTimer(retryDelay_, false, [this] {
    retryTimer_.reset();
    if (wish_ && (phase_ == Phase::idle || phase_ == Phase::running)) {
      setFilter();
    }
  });
  retryDelay_ = std::min(2 * retryDelay_, kLastRetry);
}

void BluezScanner::endRetries() {
  retryTimer_.reset();
  retryDelay_ = kFirstRetry;
}

void BluezScanner::discoveringChanged(bool isDiscovering) {
  isDiscovering_ = isDiscovering;
  if (phase_ != Phase::running) {
    return;
  }
  if (isDiscovering) {
    endRetries();
  } else {
    // It ends so by itself, without a word, when the adapter loses its power for a moment.
    retryLater();
  }
}

void BluezScanner::bluezLost() {
  phase_ = Phase::idle;
  wish_.reset();
  running_.reset();
  isStarted_ = false;
  endRetries();
  isDiscovering_.reset();
}

void BluezScanner::logFailure(std::string_view what, const BluezReply& reply) const {
  logger_.warning(fmt::format("{}: {}", what, description(errorOfReply(reply))));
}

}  // namespace wrixel2::platform::bluez
