#include "companion/CompanionObject.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "companion/SeenApps.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

struct StatusProperty {
  const char* name;
  const char* signature;
  Value (*value)(const CompanionStatus&);
};

constexpr std::array kProperties{
    StatusProperty{"DoNotDisturb", "b",
                   [](const CompanionStatus& status) { return Value(status.doNotDisturb); }},
    StatusProperty{"Locked", "b",
                   [](const CompanionStatus& status) { return Value(status.isLocked); }},
    StatusProperty{"SettingsProblem", "s",
                   [](const CompanionStatus& status) { return Value(status.settingsProblem); }},
};

/// The app that notified last comes first.
Array listOf(const SeenApps& apps) {
  Array list;
  for (auto app = apps.apps().rbegin(); app != apps.apps().rend(); ++app) {
    list.emplace_back(Dictionary{
        {"id", app->identifier}, {"name", app->name}, {"count", app->count}, {"last", app->last}});
  }
  return list;
}

}  // namespace

CompanionObject::CompanionObject(platform::ObjectExporter& exporter, const SeenApps& apps,
                                 platform::Log& log) {
  platform::ExportedInterface interface;
  interface.name = "org.corvale.wrixel2.Companion";
  for (const auto& property : kProperties) {
    interface.properties.push_back({.name = property.name,
                                    .signature = property.signature,
                                    .get = [this, &property] { return property.value(status_); }});
  }
  // It changes with every notification, which is of interest to hardly anybody.
  interface.properties.push_back({.name = "Apps",
                                  .signature = "aa{sv}",
                                  .get = [&apps] { return Value(listOf(apps)); },
                                  .isAnnounced = false});
  auto object = exporter.exportObject("", "/org/corvale/wrixel2Ipc", std::move(interface));
  if (object) {
    object_ = std::move(*object);
  } else {
    platform::Logger(log, "CompanionObject")
        .warning(fmt::format("No state on the bus: {}", description(object.error())));
  }
}

void CompanionObject::setStatus(CompanionStatus status) {
  const auto old = std::exchange(status_, std::move(status));
  for (const auto& property : kProperties) {
    if (object_ && property.value(old) != property.value(status_)) {
      object_->propertyChanged(property.name);
    }
  }
}

}  // namespace wrixel2::companion
