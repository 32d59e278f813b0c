#include "platform/linux/bluez/DeliveryQueue.h"

#include <algorithm>
#include <utility>

namespace wrixel2::platform::bluez {

void DeliveryQueue::insert(Delivery delivery, bool beforeDisconnection) {
  auto place = waiting_->end();
  if (beforeDisconnection) {
    place = std::ranges::find_if(*waiting_, [&delivery](const Delivery& waiting) {
      return waiting.kind == Kind::disconnection && waiting.subject == delivery.subject;
    });
  }
  waiting_->insert(place, std::move(delivery));
  queue_.async([waiting = std::weak_ptr<Waiting>(waiting_)] {
    const auto deliveries = waiting.lock();
    // One turn for each; a delivery that was dropped leaves its turn empty.
    if (deliveries == nullptr || deliveries->empty()) {
      return;
    }
    const Task task = std::move(deliveries->front().task);
    deliveries->pop_front();
    task();
  });
}

bool DeliveryQueue::dropConnectAnswer(const Peripheral* subject) {
  return std::erase_if(*waiting_, [subject](const Delivery& waiting) {
           return waiting.kind == Kind::connectAnswer && waiting.subject == subject;
         }) > 0;
}

}  // namespace wrixel2::platform::bluez
