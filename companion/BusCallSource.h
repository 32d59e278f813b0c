#pragma once

#include <functional>
#include <map>
#include <string>

#include "companion/CallSource.h"
#include "platform/linux/BusService.h"

namespace wrixel2::companion {

/// What the sources of calls have in common: a service on a bus, each of whose calls is an object
/// with properties. With the service its calls are gone.
class BusCallSource : public CallSource {
 public:
  void onChange(std::function<void()> changed) override { changed_ = std::move(changed); }
  std::optional<bool> isThere() const override { return isThere_; }
  const RingingCalls& ringing() const override { return ringing_; }
  void silence(const std::string& /*call*/) override {}

 protected:
  BusCallSource(platform::linux::BusConnection& bus, platform::Log& log, std::string service)
      : logger_(log, "BusCallSource"), service_(bus, std::move(service)) {}

  /// Once the signals are subscribed to.
  void start();

  platform::linux::BusService& service() { return service_; }
  const platform::Logger& logger() const { return logger_; }

  /// The service is there, and has to be asked for the calls that it has already.
  virtual void askForCalls() = 0;
  /// The call that these properties describe if it rings.
  virtual std::optional<RingingCall> ringingCall(const platform::Dictionary& properties) const = 0;

  bool knows(const std::string& call) const { return calls_.contains(call); }
  /// A call, or news of one.
  void update(const std::string& call, const platform::Dictionary& properties);
  void forget(const std::string& call);
  /// The calls whose path begins so.
  void forgetAll(const std::string& prefix);

 private:
  void tellChange();

  platform::Logger logger_;
  platform::linux::BusService service_;
  std::function<void()> changed_;
  std::optional<bool> isThere_;
  std::map<std::string, platform::Dictionary> calls_;
  RingingCalls ringing_;
};

}  // namespace wrixel2::companion
