#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NotificationCenter.h"
#include "platform/ObserverList.h"
#include "platform/RunLoop.h"

namespace wrixel2::platform::simulated {

/// The bare-name center inside one process.
class SimulatedDarwinNotifyCenter final : public DarwinNotifyCenter {
 public:
  explicit SimulatedDarwinNotifyCenter(RunLoop& loop) : loop_(loop) {}

  [[nodiscard]] std::unique_ptr<Observation> addObserver(std::string_view name,
                                                         SuspensionBehavior behavior,
                                                         Callback callback) override;
  void post(std::string_view name) override;

  /// A posting by another program: delivered alike, not recorded.
  void postFromOutside(std::string_view name);
  /// What the program posted, in order.
  const std::vector<std::string>& postings() const { return postings_; }
  void clearPostings() { postings_.clear(); }

 private:
  RunLoop& loop_;
  ObserverList<std::string> observers_;
  std::vector<std::string> postings_;
};

/// The center with user infos inside one process.
class SimulatedDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  explicit SimulatedDistributedNotificationCenter(RunLoop& loop) : loop_(loop) {}

  [[nodiscard]] std::unique_ptr<Observation> addObserver(std::string_view name,
                                                         Callback callback) override;
  void post(const Notification& notification) override;

  /// A posting by another program: delivered alike, not recorded.
  void postFromOutside(const Notification& notification);
  /// What the program posted, in order.
  const std::vector<Notification>& postings() const { return postings_; }
  std::vector<Notification> postings(std::string_view name) const;
  void clearPostings() { postings_.clear(); }

 private:
  RunLoop& loop_;
  ObserverList<Notification> observers_;
  std::vector<Notification> postings_;
};

}  // namespace wrixel2::platform::simulated
