#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>

#include "platform/RunLoop.h"

namespace wrixel2::platform {
class Peripheral;
}  // namespace wrixel2::platform

namespace wrixel2::platform::bluez {

/// Calls of the delegates that wait for their turn on the central manager's queue, in order. Those
/// still waiting are dropped with the object.
class DeliveryQueue {
 public:
  explicit DeliveryQueue(Queue queue) : queue_(std::move(queue)) {}

  void deliver(Task task) { insert({Kind::other, nullptr, std::move(task)}, false); }
  /// That a connection came about or failed.
  void deliverConnectAnswer(const Peripheral* subject, Task task) {
    insert({Kind::connectAnswer, subject, std::move(task)}, false);
  }
  void deliverDisconnection(const Peripheral* subject, Task task) {
    insert({Kind::disconnection, subject, std::move(task)}, false);
  }
  /// What was asked on a link that is gone is answered before its end is told, if that still waits.
  void deliverAnswer(const Peripheral* subject, bool isLinked, Task task) {
    insert({Kind::other, subject, std::move(task)}, !isLinked);
  }
  /// Takes back what was not told yet of a connection; whether there was something.
  bool dropConnectAnswer(const Peripheral* subject);

 private:
  enum class Kind : std::uint8_t { connectAnswer, disconnection, other };

  struct Delivery {
    Kind kind;
    const Peripheral* subject;
    Task task;
  };
  using Waiting = std::deque<Delivery>;

  void insert(Delivery delivery, bool beforeDisconnection);

  Queue queue_;
  std::shared_ptr<Waiting> waiting_ = std::make_shared<Waiting>();
};

}  // namespace wrixel2::platform::bluez
