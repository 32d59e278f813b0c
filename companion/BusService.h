#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// A program on a bus that may come, go and be replaced: its signals, and calls to it. It is never
/// started and never waited for.
class BusService {
 public:
  using Handler = std::function<void(const platform::linux::BusMessage& message,
                                     const platform::Array& arguments)>;

  /// Bus and log outlive it.
  BusService(platform::linux::BusConnection& bus, platform::Log& log, std::string name)
      : bus_(bus), logger_(log, "BusService"), name_(std::move(name)) {}
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  /// Calls back once with whether it is there, and at every change; of a service that is replaced
  /// it says that it is gone and there. Never before start() has returned. On a connection that has
  /// ended nothing is told.
  void start(std::function<void(bool isThere)> changed);

  /// From now on, signals that the service sends and whose arguments have that signature. The rest
  /// of the match rule is empty or begins with a comma.
  void onSignal(std::string_view interface, std::string_view member, std::string signature,
                Handler handler, std::string_view restOfRule = {});

  /// A call that is still to be answered. The handler gets an answer of that signature, unless the
  /// service has gone before.
  void ask(const std::string& path, const std::string& interface, std::string_view member,
           std::string_view signature, const platform::Array& arguments,
           std::string answerSignature, Handler handler);
  /// A call that is to have an effect. The log gets a warning, which begins with `whatFailed`, when
  /// it has not.
  void tell(const std::string& path, const std::string& interface, std::string_view member,
            std::string whatFailed);

 private:
  void askForOwner();
  void ownerIs(const std::string& owner);

  platform::linux::BusConnection& bus_;
  platform::Logger logger_;
  std::string name_;
  std::function<void(bool)> changed_;
  std::vector<platform::linux::BusSlot> signals_;
  platform::linux::BusSlot pendingOwner_;
  std::string owner_;  ///< unique name, empty for none
  bool isOwnerKnown_ = false;
  std::map<std::uint64_t, platform::linux::BusSlot> questions_;
  std::uint64_t nextQuestion_ = 0;
};

}  // namespace wrixel2::companion
