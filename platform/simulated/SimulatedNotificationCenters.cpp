#include "platform/simulated/SimulatedNotificationCenters.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace wrixel2::platform::simulated {

std::unique_ptr<Observation> SimulatedDarwinNotifyCenter::addObserver(
    std::string_view name, SuspensionBehavior /*behavior*/, Callback callback) {
  return observers_.add(
      name, [callback = std::move(callback)](const std::string& posted) { callback(posted); });
}

void SimulatedDarwinNotifyCenter::post(std::string_view name) {
  postings_.emplace_back(name);
  postFromOutside(name);
}

void SimulatedDarwinNotifyCenter::postFromOutside(std::string_view name) {
  observers_.deliver(loop_, name, std::string(name));
}

std::unique_ptr<Observation> SimulatedDistributedNotificationCenter::addObserver(
    std::string_view name, Callback callback) {
  return observers_.add(name, std::move(callback));
}

void SimulatedDistributedNotificationCenter::post(const Notification& notification) {
  postings_.push_back(notification);
  postFromOutside(notification);
}

void SimulatedDistributedNotificationCenter::postFromOutside(const Notification& notification) {
  observers_.deliver(loop_, notification.name, notification);
}

std::vector<Notification> SimulatedDistributedNotificationCenter::postings(
    std::string_view name) const {
  std::vector<Notification> postings;
  std::ranges::copy_if(postings_, std::back_inserter(postings),
                       [name](const Notification& posting) { return posting.name == name; });
  return postings;
}

}  // namespace wrixel2::platform::simulated
