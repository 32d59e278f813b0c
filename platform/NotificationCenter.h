#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Observation.h"
#include "platform/UniqueFunction.h"
#include "platform/Value.h"

namespace wrixel2::platform {

/// What an observer wants for postings that come while its process is suspended. Kept as part of
/// the registration; every posting is delivered at once here.
enum class SuspensionBehavior : std::uint8_t { coalesce, deliverImmediately };

/// Notifications that are a bare name.
///
/// A posting reaches each observer exactly once, queued, never inside post(): those in the posting
/// process directly, those in other processes over the bus.
class DarwinNotifyCenter {
 public:
  using Callback = UniqueFunction<void(std::string_view name)>;

  virtual ~DarwinNotifyCenter() = default;
  [[nodiscard]] virtual std::unique_ptr<Observation> addObserver(std::string_view name,
                                                                 SuspensionBehavior behavior,
                                                                 Callback callback) = 0;
  virtual void post(std::string_view name) = 0;
};

/// A notification with an object and a dictionary.
struct Notification {
  std::string name;
  std::optional<std::string> object;
  Dictionary userInfo;
};

/// Notifications with a user info; delivered as DarwinNotifyCenter's are.
class DistributedNotificationCenter {
 public:
  using Callback = UniqueFunction<void(const Notification& notification)>;

  virtual ~DistributedNotificationCenter() = default;
  /// Observes the name, whatever object it is posted with.
  [[nodiscard]] virtual std::unique_ptr<Observation> addObserver(std::string_view name,
                                                                 Callback callback) = 0;
  virtual void post(const Notification& notification) = 0;
};

}  // namespace wrixel2::platform
