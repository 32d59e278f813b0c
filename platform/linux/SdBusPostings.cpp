#include "platform/linux/SdBusPostings.h"

#include <utility>
#include <vector>

#include <fmt/format.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kSignal = "Posted";

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
                             std::string_view interface, std::vector<ExportedArgument> arguments,
                             BusService* publisher)
    : connection_(connection),
      logger_(log, "SdBusPostings"),
      path_(path),
      interface_(interface),
      arguments_(std::move(arguments)),
      publisher_(publisher) {}

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
  if (publisher_ == nullptr) {
    return group;
  }
  auto slot = publisher_->matchSignal(
      interface_, kSignal, signatureOf(arguments_),
      [weak = known](const BusMessage&, const Array& arguments) {
        if (const auto present = weak.lock()) {
          Group::deliver(present->present(), arguments);
        }
      },
      fmt::format(",path='{}',arg0='{}'", path_, name));
  if (slot) {
    group->match = std::move(*slot);
  } else {
    logger_.error(fmt::format("Postings of {} by other programs are not noticed: {}", name,
                              description(slot.error())));
  }
  return group;
}

ErrorOrNone SdBusPostings::serveCallers() {
  auto slot = connection_.addInterface(
      path_, {interface_,
              {{"Post", arguments_, {}, [this](const BusMessage& call) { called(call); }}},
              {},
              {{kSignal, arguments_}}});
  if (!slot) {
    return slot.error();
  }
  calls_ = std::move(*slot);
  return std::nullopt;
}

void SdBusPostings::called(const BusMessage& call) const {
  Array arguments;
  const auto error = call.readBoundedArguments(arguments);
  const auto found = error ? groups_.end() : groups_.find(*arguments.front().text());
  if (found == groups_.end()) {
    call.replyError(SD_BUS_ERROR_INVALID_ARGS,
                    error ? error->localizedDescription : "Postings of this name have no effect");
    return;
  }
  call.reply({}, {});
  if (const auto group = found->second.lock()) {
    Group::deliver(group->present(), arguments);
  }
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
          connection_.emitSignal(path_, interface_, kSignal, signatureOf(arguments_), arguments)) {
    logger_.error(
        fmt::format("The posting of {} reaches no other program: {}", *name, description(*error)));
  }
}

}  // namespace wrixel2::platform::linux
