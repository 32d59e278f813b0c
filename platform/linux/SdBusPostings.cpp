#include "platform/linux/SdBusPostings.h"

#include <utility>
#include <vector>

#include <fmt/format.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kMember = "Posted";

}  // namespace

struct SdBusPostings::Observer {
  Callback callback;
};

/// The observers of one name, with the one match that they share. Lives as long as one of them.
struct SdBusPostings::Group {
  std::vector<std::weak_ptr<Observer>> observers;
  BusSlot match;

  /// Copied for a posting: its callbacks may add and end observations.
  std::vector<std::weak_ptr<Observer>> present() {
    std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
    return observers;
  }

  static void deliver(const std::vector<std::weak_ptr<Observer>>& observers,
                      const Array& arguments) {
    for (const auto& candidate : observers) {
      if (const auto observer = candidate.lock()) {
        observer->callback(arguments);
      }
    }
  }
};

class SdBusPostings::BusObservation final : public Observation {
 public:
  BusObservation(std::shared_ptr<Group> group, Callback callback)
      : group_(std::move(group)),
        observer_(std::make_shared<Observer>(Observer{std::move(callback)})) {
    group_->observers.push_back(observer_);
  }

 private:
  std::shared_ptr<Group> group_;
  std::shared_ptr<Observer> observer_;
};

SdBusPostings::SdBusPostings(BusConnection& connection, Log& log, std::string_view path,
                             std::string_view interface, std::string_view signature)
    : connection_(connection),
      logger_(log, "SdBusPostings"),
      path_(path),
      interface_(interface),
      signature_(signature) {}

std::unique_ptr<Observation> SdBusPostings::addObserver(std::string_view name, Callback callback) {
  return std::make_unique<BusObservation>(groupNamed(name), std::move(callback));
}

std::shared_ptr<SdBusPostings::Group> SdBusPostings::groupNamed(std::string_view name) {
  auto& known = groups_[std::string(name)];
  if (auto group = known.lock()) {
    return group;
  }
  auto group = std::make_shared<Group>();
  known = group;
  const auto received = [weak = known, logger = logger_, own = connection_.uniqueName(),
                         signature = signature_,
                         wanted = std::string(name)](const BusMessage& message) {
    const auto present = weak.lock();
    if (!present || message.sender() == own) {
      return;
    }
    auto arguments = message.arguments();
    if (!arguments || message.signature() != signature) {
      logger.warning(fmt::format("A posting of {} from {} is dropped: {}", wanted, message.sender(),
                                 arguments
                                     ? fmt::format("its arguments are \"{}\"", message.signature())
                                     : description(arguments.error())));
      return;
    }
    Group::deliver(present->present(), *arguments);
  };
  auto slot = connection_.addMatch(
      fmt::format("type='signal',path='{}',interface='{}',member='{}',arg0='{}'", path_, interface_,
                  kMember, name),
      received);
  if (slot) {
    group->match = std::move(*slot);
  } else {
    logger_.error(fmt::format("Postings of {} by other programs are not noticed: {}", name,
                              description(slot.error())));
  }
  return group;
}

void SdBusPostings::post(Array arguments) {
  const auto name = arguments.front().text();
  if (const auto found = groups_.find(*name); found != groups_.end()) {
    if (const auto group = found->second.lock()) {
      // Whoever observes from here on has not been posted to.
      connection_.loop().post(
          [observers = group->present(), arguments] { Group::deliver(observers, arguments); });
    }
  }
  if (const auto error =
          connection_.emitSignal(path_, interface_, kMember, signature_, arguments)) {
    logger_.error(
        fmt::format("The posting of {} reaches no other program: {}", *name, description(*error)));
  }
}

}  // namespace wrixel2::platform::linux
