#include "companion/CallMonitor.h"

#include <algorithm>
#include <utility>

#include "companion/BandWork.h"

namespace wrixel2::companion {

namespace {

constexpr const char* kUnknownCaller = "Unknown";

}  // namespace

void CallMonitor::addPreferredSource(CallSource& source) {
  preferred_ = &source;
  addSource(source);
}

void CallMonitor::addSource(CallSource& source) {
  sources_.push_back(&source);
  source.onChange([this] { update(); });
  update();
}

void CallMonitor::removeSource(CallSource& source) {
  source.onChange(nullptr);
  std::erase(sources_, &source);
  if (preferred_ == &source) {
    preferred_ = nullptr;
  }
  for (Call& call : calls_) {
    const bool wasIn = std::erase_if(call.reports, [&](const Report& report) {
                         return report.source == &source;
                       }) > 0;
    call.isOver = call.isOver || wasIn;
  }
  update();
}

void CallMonitor::daemonIsReady() {
  isDaemonReady_ = true;
  isBandRinging_ = false;
  for (Call& call : calls_) {
    call.isTold = false;
  }
  update();
}

void CallMonitor::update() {
  noteEnds();
  for (CallSource* source : sources_) {
    noteNewCalls(*source);
  }
  // One that is over is remembered while a slower source may still report it as new.
  const auto now = clock_.monotonicNow();
  calls_.remove_if([now](const Call& call) {
    return now - call.began > kSameCall &&
           std::ranges::none_of(call.reports,
                                [](const Report& report) { return report.isRinging; });
  });
  tellDaemon();
}

void CallMonitor::noteEnds() {
  for (Call& call : calls_) {
    for (Report& report : call.reports) {
      if (report.isRinging && !report.source->ringing().contains(report.id)) {
        report.isRinging = false;
        call.isOver = true;
      }
    }
  }
}

void CallMonitor::noteNewCalls(CallSource& source) {
  for (const auto& [id, ringing] : source.ringing()) {
    const auto isOfIt = [&source, &name = id](const Report& report) {
      return report.isRinging && report.source == &source && report.id == name;
    };
    if (std::ranges::any_of(
            calls_, [&](const Call& call) { return std::ranges::any_of(call.reports, isOfIt); })) {
      continue;
    }
    Call* call = sameCallOfOthers(source, ringing);
    if (call == nullptr) {
      call = &calls_.emplace_back();
      call->began = clock_.monotonicNow();
    }
    call->reports.push_back({&source, id});
  }
}

CallMonitor::Call* CallMonitor::sameCallOfOthers(const CallSource& source,
                                                 const RingingCall& ringing) {
  for (Call& call : calls_) {
    const bool isReported = std::ranges::any_of(
        call.reports, [&](const Report& report) { return report.source == &source; });
    const bool isSameNumber =
        !ringing.number.empty() && std::ranges::any_of(call.reports, [&](const Report& report) {
          return report.isRinging &&
                 report.source->ringing().at(report.id).number == ringing.number;
        });
    if (!isReported && (isSameNumber || clock_.monotonicNow() - call.began <= kSameCall)) {
      return &call;
    }
  }
  return nullptr;
}

bool CallMonitor::isListenedTo(const Call& call) const {
  // While it is not known whether the preferred source is there, the others wait for it.
  return preferred_ == nullptr || preferred_->isThere() == false ||
         std::ranges::any_of(call.reports, [this](const Report& report) {
           return report.isRinging && report.source == preferred_;
         });
}

const CallMonitor::Report& CallMonitor::bestReport(const Call& call) const {
  const auto ofPreferred = std::ranges::find(call.reports, preferred_, &Report::source);
  return ofPreferred == call.reports.end() ? call.reports.front() : *ofPreferred;
}

std::string CallMonitor::callerOf(const Call& call) const {
  std::string number;
  const auto look = [&number](const Report& report) {
    const RingingCall& ringing = report.source->ringing().at(report.id);
    number = number.empty() ? ringing.number : number;
    return ringing.name;
  };
  std::string name = look(bestReport(call));
  for (const Report& report : call.reports) {
    name = name.empty() ? look(report) : name;
  }
  return name.empty() ? number : name;
}

void CallMonitor::tellDaemon() {
  if (!isDaemonReady_) {
    return;
  }
  for (Call& call : calls_) {
    if (!call.isTold && rings(call)) {
      tell(call);
    }
  }
  const bool isOneLeft =
      std::ranges::any_of(calls_, [](const Call& call) { return call.isTold && !call.isOver; });
  if (std::exchange(isBandRinging_, isOneLeft) && !isOneLeft) {
    daemon_.sendMessageName("phoneCall", {{"callHanged", true}});
  }
}

void CallMonitor::tell(Call& call) {
  std::string caller = callerOf(call);
  if (caller.empty() && call.isCallerAwaited) {
    if (call.callerTimer == nullptr) {
      call.callerTimer = loop_.scheduledTimer(kCallerWait, false, [this, &call] {
        call.isCallerAwaited = false;
        update();
      });
    }
    return;
  }
  call.callerTimer.reset();
  call.isTold = true;
  // The phone may be about to sleep again: it has to stay awake until the band rings.
  work_.bandHasWork();
  daemon_.sendMessageName(
      "phoneCall",
      {{"newCall", true}, {"text", caller.empty() ? kUnknownCaller : std::move(caller)}});
}

void CallMonitor::silence() {
  bool isAnyRinging = false;
  for (const Call& call : calls_) {
    if (rings(call)) {
      const Report& report = bestReport(call);
      report.source->silence(report.id);
      isAnyRinging = true;
    }
  }
  if (isAnyRinging) {
    daemon_.sendMessageName("stopVibration");
  }
}

void CallMonitor::hangUp() {
  for (const Call& call : calls_) {
    if (rings(call)) {
      const Report& report = bestReport(call);
      report.source->hangUp(report.id);
    }
  }
}

}  // namespace wrixel2::companion
