#include "companion/BusCallSource.h"

namespace wrixel2::companion {

void BusCallSource::start() {
  service_.start([this](bool isThere) {
    isThere_ = isThere;
    calls_.clear();
    ringing_.clear();
    tellChange();
    if (isThere) {
      askForCalls();
    }
  });
}

void BusCallSource::update(const std::string& call, const platform::Dictionary& properties) {
  platform::Dictionary& known = calls_[call];
  for (const auto& [name, value] : properties) {
    known.insert_or_assign(name, value);
  }
  const auto rings = ringingCall(known);
  const auto before = ringing_.find(call);
  if (rings ? before != ringing_.end() && before->second == *rings : before == ringing_.end()) {
    return;
  }
  if (rings) {
    ringing_.insert_or_assign(call, *rings);
  } else {
    ringing_.erase(before);
  }
  tellChange();
}

void BusCallSource::forget(const std::string& call) {
  calls_.erase(call);
  if (ringing_.erase(call) > 0) {
    tellChange();
  }
}

void BusCallSource::forgetAll(const std::string& prefix) {
  std::erase_if(calls_, [&](const auto& entry) { return entry.first.starts_with(prefix); });
  if (std::erase_if(ringing_, [&](const auto& entry) { return entry.first.starts_with(prefix); }) >
      0) {
    tellChange();
  }
}

void BusCallSource::tellChange() {
  if (changed_) {
    changed_();
  }
}

}  // namespace wrixel2::companion
