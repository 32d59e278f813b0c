#include "platform/simulated/SimulatedMessageCenters.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "platform/simulated/SimulatedClock.h"

namespace wrixel2::platform::simulated {

namespace {

constexpr std::chrono::seconds kReplyTimeout{2};

class SimulatedPendingAnswer final : public PendingAnswer {
 public:
  explicit SimulatedPendingAnswer(std::shared_ptr<MessageCenter::AnswerHandler> handler)
      : handler_(std::move(handler)) {}

 private:
  std::shared_ptr<MessageCenter::AnswerHandler> handler_;
};

void setMembership(std::set<std::string, std::less<>>& set, std::string_view name, bool isMember) {
  if (isMember) {
    set.emplace(name);
  } else if (const auto entry = set.find(name); entry != set.end()) {
    set.erase(entry);
  }
}

}  // namespace

std::unique_ptr<MessageCenter> SimulatedMessageCenters::centerNamed(std::string_view name) {
  return std::make_unique<SimulatedMessageCenter>(*this, name);
}

std::vector<SentMessage> SimulatedMessageCenters::sentMessages(std::string_view name) const {
  std::vector<SentMessage> messages;
  std::ranges::copy_if(sent_, std::back_inserter(messages),
                       [name](const SentMessage& message) { return message.name == name; });
  return messages;
}

void SimulatedMessageCenters::setHanging(std::string_view center, bool isHanging) {
  setMembership(hanging_, center, isHanging);
  if (!isHanging) {
    deliverHeld(center);
  }
}

void SimulatedMessageCenters::deliverHeld(std::string_view center) {
  if (auto held = held_.extract(std::string(center))) {
    for (Task& task : held.mapped()) {
      loop_.post(std::move(task));
    }
  }
}

void SimulatedMessageCenters::setTaken(std::string_view center, bool isTaken) {
  setMembership(taken_, center, isTaken);
}

bool SimulatedMessageCenters::isServed(std::string_view center) const {
  return servers_.contains(center);
}

SimulatedMessageCenter::SimulatedMessageCenter(SimulatedMessageCenters& centers,
                                               std::string_view name)
    : centers_(centers), name_(name) {}

SimulatedMessageCenter::~SimulatedMessageCenter() {
  if (server() == this) {
    centers_.servers_.erase(name_);
    centers_.deliverHeld(name_);
  }
}

SimulatedMessageCenter* SimulatedMessageCenter::server() const {
  const auto entry = centers_.servers_.find(name_);
  return entry == centers_.servers_.end() ? nullptr : entry->second;
}

ErrorOrNone SimulatedMessageCenter::runServer() {
  if (centers_.taken_.contains(name_) || (server() != nullptr && server() != this)) {
    return Error{EEXIST, fmt::format("Another program serves {}", name_)};
  }
  centers_.servers_[name_] = this;
  return std::nullopt;
}

void SimulatedMessageCenter::registerForMessageName(std::string_view name, Handler handler) {
  auto registration = std::make_shared<Registration>();
  registration->handler = std::move(handler);
  registrations_.insert_or_assign(std::string(name), std::move(registration));
}

void SimulatedMessageCenter::registerForMessageNameWithLaterReply(std::string_view name,
                                                                  LaterReplyingHandler handler) {
  auto registration = std::make_shared<Registration>();
  registration->replyingHandler = std::move(handler);
  registrations_.insert_or_assign(std::string(name), std::move(registration));
}

void SimulatedMessageCenter::handleLater(RunLoop& loop, SimulatedMessageCenter& server,
                                         std::string_view name, const Dictionary& userInfo) {
  const auto entry = server.registrations_.find(name);
  if (entry == server.registrations_.end()) {
    return;
  }
  loop.post(
      [weak = std::weak_ptr<Registration>(entry->second), message = std::string(name), userInfo] {
        const auto registration = weak.lock();
        if (registration == nullptr) {
          return;
        }
        if (registration->handler) {
          registration->handler(message, userInfo);
        } else {
          registration->replyingHandler(message, userInfo, [](const Result<Dictionary>&) {});
        }
      });
}

void SimulatedMessageCenter::sendMessageName(std::string_view name, const Dictionary& userInfo) {
  centers_.sent_.push_back({name_, std::string(name), userInfo, false});
  SimulatedMessageCenter* const served = server();
  if (served != nullptr && !centers_.hanging_.contains(name_)) {
    handleLater(centers_.loop_, *served, name, userInfo);
  }
}

void SimulatedMessageCenter::serve(const std::weak_ptr<Registration>& weak,
                                   const std::string& message, const Dictionary& userInfo,
                                   Reply answer) {
  const auto registration = weak.lock();
  if (registration == nullptr) {
    answer(Error{kServerIsGone, fmt::format("Nobody is left to answer \"{}\"", message)});
  } else if (registration->replyingHandler) {
    registration->replyingHandler(message, userInfo, std::move(answer));
  } else {
    answer(Dictionary{});
    registration->handler(message, userInfo);
  }
}

Result<std::unique_ptr<PendingAnswer>> SimulatedMessageCenter::sendMessageNameForAnswer(
    std::string_view name, const Dictionary& userInfo, AnswerHandler handler) {
  centers_.sent_.push_back({name_, std::string(name), userInfo, true});
  auto shared = std::make_shared<AnswerHandler>(std::move(handler));
  const auto answer = [weakHandler = std::weak_ptr(shared)](const Result<Dictionary>& result) {
    if (const auto waiting = weakHandler.lock()) {
      (*waiting)(result);
    }
  };
  SimulatedMessageCenter* const served = server();
  const auto nobody = [&](long code) {
    centers_.loop_.post([answer, code, text = fmt::format("{} does not take \"{}\"", name_, name)] {
      answer(Error{code, text});
    });
  };
  if (served == nullptr) {
    nobody(kNobodyServes);
  } else if (const auto entry = served->registrations_.find(name);
             entry == served->registrations_.end()) {
    nobody(ENOSYS);
  } else {
    Task deliver = [answer, weak = std::weak_ptr(entry->second), message = std::string(name),
                    userInfo] { serve(weak, message, userInfo, answer); };
    if (centers_.hanging_.contains(name_)) {
      centers_.held_[name_].push_back(std::move(deliver));
    } else {
      centers_.loop_.post(std::move(deliver));
    }
  }
  return std::unique_ptr<PendingAnswer>(
      std::make_unique<SimulatedPendingAnswer>(std::move(shared)));
}

Result<Dictionary> SimulatedMessageCenter::sendMessageAndReceiveReplyName(
    std::string_view name, const Dictionary& userInfo) {
  centers_.sent_.push_back({name_, std::string(name), userInfo, true});
  const auto noAnswer = [&]() -> Result<Dictionary> {
    centers_.clock_.advance(kReplyTimeout);
    return Error{ETIMEDOUT, fmt::format("{} did not answer \"{}\" in time", name_, name)};
  };
  if (centers_.hanging_.contains(name_)) {
    return noAnswer();
  }
  SimulatedMessageCenter* const served = server();
  if (served == nullptr) {
    return Error{ESRCH, fmt::format("Nobody serves {}", name_)};
  }
  const auto entry = served->registrations_.find(name);
  if (entry == served->registrations_.end()) {
    return Error{ENOSYS, fmt::format("{} does not know the message \"{}\"", name_, name)};
  }
  const std::shared_ptr<Registration> registration = entry->second;
  if (registration->replyingHandler) {
    const auto answer = std::make_shared<std::optional<Result<Dictionary>>>();
    registration->replyingHandler(
        name, userInfo, [answer](const Result<Dictionary>& result) { answer->emplace(result); });
    return *answer ? std::move(**answer) : noAnswer();
  }
  handleLater(centers_.loop_, *served, name, userInfo);
  return Dictionary{};
}

}  // namespace wrixel2::platform::simulated
