#include "companion/SleepHold.h"

#include <utility>

namespace wrixel2::companion {

void SleepHold::bandHasWork() {
  inhibitor_.take();
  timer_ = loop_.scheduledTimer(kHold, false, [this] { letGo(); });
}

void SleepHold::daemonStateIs(const std::string& state) {
  if (std::exchange(daemonState_, state) == state) {
    return;
  }
  if (state == "connecting") {
    bandHasWork();
  } else if (state == "idle" || state == "off" || state.empty()) {
    letGo();
  }
}

void SleepHold::letGo() {
  timer_.reset();
  inhibitor_.giveBack();
}

}  // namespace wrixel2::companion
