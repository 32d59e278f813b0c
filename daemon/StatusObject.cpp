#include "daemon/StatusObject.h"

#include <array>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::daemon {

namespace {

constexpr std::string_view kPath = "/org/corvale/wrixel2dIpc";
constexpr std::string_view kInterface = "org.corvale.wrixel2d.Status";

struct StatusProperty {
  const char* name;
  const char* signature;
  platform::Value (*value)(const DaemonStatus&);
};

constexpr std::array kProperties{
    StatusProperty{"State", "s", [](const DaemonStatus& s) { return platform::Value(s.state); }},
    StatusProperty{"Band", "s", [](const DaemonStatus& s) { return platform::Value(s.band); }},
    StatusProperty{"Initialized", "b",
                   [](const DaemonStatus& s) { return platform::Value(s.initialized); }},
    StatusProperty{"LockedTo", "s",
                   [](const DaemonStatus& s) { return platform::Value(s.lockedTo); }},
    StatusProperty{"Battery", "y",
                   [](const DaemonStatus& s) { return platform::Value(int{s.battery}); }},
    StatusProperty{"Steps", "u", [](const DaemonStatus& s) { return platform::Value(s.steps); }},
    StatusProperty{"NextMeasurement", "x",
                   [](const DaemonStatus& s) { return platform::Value(s.nextMeasurement); }},
    StatusProperty{"NextStepCheck", "x",
                   [](const DaemonStatus& s) { return platform::Value(s.nextStepCheck); }},
    StatusProperty{"Authentication", "s",
                   [](const DaemonStatus& s) { return platform::Value(s.authentication); }},
    StatusProperty{"Problem", "s",
                   [](const DaemonStatus& s) { return platform::Value(s.problem); }},
};

std::string lineOf(const DaemonStatus& status) {
  if (!status.problem.empty()) {
    return status.problem;
  }
  if (status.band.empty()) {
    return status.state;
  }
  return fmt::format("{}, band {}{}", status.state, status.band,
                     status.initialized ? " ready" : "");
}

}  // namespace

StatusObject::StatusObject(const platform::Platform& platform, const platform::Logger& logger)
    : serviceManager_(platform.serviceManager) {
  platform::ExportedInterface interface;
  interface.name = kInterface;
  for (const auto& property : kProperties) {
    interface.properties.push_back({.name = property.name,
                                    .signature = property.signature,
                                    .get = [this, &property] { return property.value(status_); },
                                    .set = {}});
  }
  // Below the name that the daemon's message center has.
  auto object = platform.objectExporter.exportObject("", kPath, std::move(interface));
  if (object) {
    object_ = std::move(*object);
  } else {
    logger.byFile().warning(fmt::format("No status on the bus: {}", description(object.error())));
  }
}

void StatusObject::setStatus(DaemonStatus status) {
  const auto old = std::exchange(status_, std::move(status));
  for (const auto& property : kProperties) {
    if (object_ && property.value(old) != property.value(status_)) {
      object_->propertyChanged(property.name);
    }
  }
  if (auto line = lineOf(status_); line != line_) {
    line_ = std::move(line);
    serviceManager_.notifyStatus(line_);
  }
}

}  // namespace wrixel2::daemon
