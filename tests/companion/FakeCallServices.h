#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "companion/BusCallSource.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

enum class CallState : std::uint8_t { incoming, waiting, outgoing, active, over };

/// A service that knows of calls, as another program of the bus has it.
class FakeCallService {
 public:
  /// A call's path is the prefix and a number.
  FakeCallService(platform::linux::BusConnection& bus, std::string name, std::string callPrefix)
      : bus_(bus), name_(std::move(name)), callPrefix_(std::move(callPrefix)) {}
  FakeCallService(const FakeCallService&) = delete;
  FakeCallService& operator=(const FakeCallService&) = delete;
  virtual ~FakeCallService() = default;

  /// The double of org.gnome.Calls, org.freedesktop.ModemManager1 or org.ofono.
  static std::unique_ptr<FakeCallService> named(const std::string& name,
                                                platform::linux::BusConnection& bus);
  /// The source that is to understand it.
  virtual std::unique_ptr<CallSource> source(platform::linux::BusConnection& bus,
                                             platform::Log& log) const = 0;

  void appear() { bus_.requestName(name_); }
  void vanish() { bus_.releaseName(name_); }

  /// Its object path. The call is announced where there is anybody to hear it.
  std::string add(CallState state, const std::string& number, const std::string& caller);
  void setState(const std::string& path, CallState state);
  void setNumber(const std::string& path, const std::string& number);
  void remove(const std::string& path);
  /// As when a modem is unplugged or switched off; where there is none, the service ends.
  virtual void removeModem() { vanish(); }

  /// "Hangup PATH" and the like, as they came.
  std::vector<std::string> done;

 protected:
  struct Call {
    CallState state = CallState::over;
    std::string number;
    std::string caller;
    platform::linux::BusSlot slot;
  };

  virtual platform::linux::BusInterface interfaceOf(const std::string& path, const Call& call) = 0;
  virtual void announce(const std::string& path, const Call& call) = 0;
  virtual void announceState(const std::string& path, const Call& call) = 0;
  virtual void announceNumber(const std::string& path, const Call& call) = 0;
  virtual void announceRemoval(const std::string& path) = 0;

  void serve(const char* path, platform::linux::BusInterface interface);
  void serveObjectManager(const char* path);
  /// One that takes no arguments and has no answer.
  platform::linux::BusMethod action(const std::string& path, const std::string& method);
  void changed(const std::string& path, const std::string& interface,
               const platform::Dictionary& properties) const;

  platform::linux::BusConnection& bus_;
  std::string name_;
  std::string callPrefix_;
  std::map<std::string, Call> calls_;
  int nextCall_ = 1;
  std::vector<platform::linux::BusSlot> slots_;
};

}  // namespace wrixel2::companion
