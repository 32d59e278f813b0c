#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/Session.h"
#include "platform/Date.h"
#include "platform/Value.h"

namespace wrixel2::ctl {

/// How the band's service is doing.
struct StatusReport {
  std::optional<platform::Dictionary> daemon;     ///< its status; none where it does not run
  std::optional<platform::Dictionary> companion;  ///< what it tells; none where it does not run

  /// Fails where the bus does not answer.
  static platform::Result<StatusReport> of(Session& session);

  /// What keeps the service from working, a sentence each, the worst first.
  std::vector<std::string> problems() const;

  /// Aligned lines for people.
  std::string text(platform::Date now, const platform::TimeZone& zone) const;
  platform::Dictionary json() const;
};

}  // namespace wrixel2::ctl
