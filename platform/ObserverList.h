#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Observation.h"
#include "platform/RunLoop.h"
#include "platform/UniqueFunction.h"

namespace wrixel2::platform {

/// Those who observe something by a name; the payload is what a callback takes.
template <typename Payload>
class ObserverList {
 public:
  using Callback = UniqueFunction<void(const Payload&)>;

  std::unique_ptr<Observation> add(std::string_view name, Callback callback) {
    auto observer = std::make_shared<Observer>(std::string(name), std::move(callback));
    observers_.push_back(observer);
    return std::make_unique<Registration>(std::move(observer));
  }

  /// Queues one turn for each who observes the name now.
  void deliver(RunLoop& loop, std::string_view name, const Payload& payload) {
    std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
    for (const auto& weak : observers_) {
      const auto observer = weak.lock();
      if (observer->name == name) {
        loop.post([weak, payload] {
          if (const auto alive = weak.lock()) {
            alive->callback(payload);
          }
        });
      }
    }
  }

 private:
  struct Observer {
    Observer(std::string observedName, Callback function)
        : name(std::move(observedName)), callback(std::move(function)) {}
    std::string name;
    Callback callback;
  };

  /// Owns the observer; the list and the queued turns know it weakly.
  class Registration final : public Observation {
   public:
    explicit Registration(std::shared_ptr<Observer> observer) : observer_(std::move(observer)) {}

   private:
    std::shared_ptr<Observer> observer_;
  };

  std::vector<std::weak_ptr<Observer>> observers_;
};

}  // namespace wrixel2::platform
