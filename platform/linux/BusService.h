#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::platform::linux {

/// A program on a bus, by its well-known name, that may come, go and be replaced: its signals, and
/// questions to it. It is never started, and never waited for but by startAndWait().
class BusService {
 public:
  using Changed = std::function<void(bool isThere)>;
  using Handler = std::function<void(const BusMessage& message, const Array& arguments)>;

  /// The bus outlives it. Who has the name, and what the service is asked, is asked again whenever
  /// the time is over without an answer.
  BusService(BusConnection& bus, std::string name,
             TimeInterval answerTime = BusConnection::kDefaultTimeout)
      : bus_(bus), name_(std::move(name)), answerTime_(answerTime) {}
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  /// Calls back once with whether it is there, and at every change; of a service that is replaced
  /// it says that it is gone and there. Never before start() has returned. The callback may destroy
  /// this. On a connection that has ended nothing is told.
  void start(Changed changed);
  /// Waits for the bus to say who has the name: no signal that is sent from here on is missed. The
  /// callback, if any, is told of changes alone.
  ErrorOrNone startAndWait(Changed changed = {});

  /// Signals that the service sends and whose arguments have that signature, for the slot's life.
  /// The rest of the match rule is empty or begins with a comma.
  [[nodiscard]] Result<BusSlot> matchSignal(std::string_view interface, std::string_view member,
                                            std::string signature, Handler handler,
                                            std::string_view restOfRule = {});
  /// The same, for good.
  void onSignal(std::string_view interface, std::string_view member, std::string signature,
                Handler handler, std::string_view restOfRule = {});

  /// A call that is still to be answered. The handler gets an answer of that signature; `refused`,
  /// if any, is called for every other one. Neither is, once the service has gone.
  void ask(const std::string& path, const std::string& interface, std::string_view member,
           std::string_view signature, const Array& arguments, std::string answerSignature,
           Handler answered, std::function<void()> refused = {});
  /// Whether something that was asked is not answered yet.
  bool isAsked() const { return !questions_.empty(); }
  /// What has been asked is not to be answered.
  void dropQuestions() { questions_.clear(); }

  /// A call that is to have an effect. The log gets a warning, which begins with `whatFailed`, when
  /// it has not.
  void tell(const std::string& path, const std::string& interface, std::string_view member,
            const Logger& logger, std::string whatFailed);

 private:
  struct Question;

  ErrorOrNone watchOwner(Changed changed);
  void send(const std::shared_ptr<const Question>& question);
  void ownerIs(const std::string& owner);

  BusConnection& bus_;
  std::string name_;
  TimeInterval answerTime_;
  Changed changed_;
  std::vector<BusSlot> signals_;
  std::string owner_;  ///< unique name, empty for none
  bool isOwnerKnown_ = false;
  std::map<std::uint64_t, BusSlot> questions_;
  std::uint64_t nextQuestion_ = 0;
  /// Held weakly by who calls back.
  std::shared_ptr<char> life_ = std::make_shared<char>();
};

}  // namespace wrixel2::platform::linux
