#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/Clock.h"

namespace wrixel2::daemon {

/// The last notification of an app that went to the band.
class MsgInfo {
 public:
  MsgInfo(std::optional<std::string> sender, platform::Date date, platform::MonotonicTime moment)
      : sender_(std::move(sender)), date_(date), moment_(moment) {}

  const std::optional<std::string>& sender() const { return sender_; }
  void setSender(std::optional<std::string> sender) { sender_ = std::move(sender); }
  const std::optional<std::string>& getSender() const { return sender_; }

  /// When it was forwarded, on the wall clock.
  platform::Date date() const { return date_; }
  void setDate(platform::Date date) { date_ = date; }
  platform::Date getDate() const { return date_; }

  /// The same on the clock that nobody sets, by which the quiet time runs.
  platform::MonotonicTime moment() const { return moment_; }

 private:
  std::optional<std::string> sender_;
  platform::Date date_;
  platform::MonotonicTime moment_;
};

/// By the app's section identifier. Holds the apps forwarded while do-not-annoy was on.
using ForwardingHistory = std::map<std::string, MsgInfo, std::less<>>;

}  // namespace wrixel2::daemon
