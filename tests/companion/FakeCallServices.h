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
  explicit FakeCallService(platform::linux::BusConnection& bus) : bus_(bus) {}
  FakeCallService(const FakeCallService&) = delete;
  FakeCallService& operator=(const FakeCallService&) = delete;
  virtual ~FakeCallService() = default;

  /// The double of org.gnome.Calls, org.freedesktop.ModemManager1 or org.ofono.
  static std::unique_ptr<FakeCallService> named(const std::string& name,
                                                platform::linux::BusConnection& bus);
  /// The source that is to understand it.
  static std::unique_ptr<CallSource> sourceFor(const std::string& name,
                                               platform::linux::BusConnection& bus,
                                               platform::Log& log);

  virtual std::string name() const = 0;
  void appear() { bus_.requestName(name()); }
  void vanish() { bus_.releaseName(name()); }

  /// Its object path. The call is announced where there is anybody to hear it.
  std::string add(CallState state, const std::string& number, const std::string& caller);
  void setState(const std::string& path, CallState state);
  void setNumber(const std::string& path, const std::string& number);
  void remove(const std::string& path);
  /// As when a modem is unplugged or switched off.
  virtual void removeModem() = 0;
  virtual bool hasModem() const { return true; }

  /// "Hangup PATH" and the like, as they came.
  std::vector<std::string> done;

 protected:
  struct Call {
    CallState state = CallState::over;
    std::string number;
    std::string caller;
    platform::linux::BusSlot slot;
  };

  virtual std::string pathOf(int number) const = 0;
  virtual platform::linux::BusSlot exportCall(const std::string& path, const Call& call) = 0;
  virtual void announce(const std::string& path, const Call& call) = 0;
  virtual void announceState(const std::string& path, const Call& call) = 0;
  virtual void announceNumber(const std::string& path, const Call& call) = 0;
  virtual void announceRemoval(const std::string& path) = 0;

  /// One that takes no arguments and has no answer.
  platform::linux::BusMethod action(const std::string& path, const std::string& method);
  void changed(const std::string& path, const std::string& interface,
               const platform::Dictionary& properties) const;

  platform::linux::BusConnection& bus_;
  std::map<std::string, Call> calls_;
  int nextCall_ = 1;
};

}  // namespace wrixel2::companion
