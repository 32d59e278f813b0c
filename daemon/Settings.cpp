#include "daemon/Settings.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

namespace {

/// A key and the field that it sets: a flag or a number.
struct Field {
  Field(std::string_view name, bool& field) : key(name), flag(&field) {}
  Field(std::string_view name, std::uint64_t& field) : key(name), number(&field) {}

  std::string_view key;
  bool* flag = nullptr;
  std::uint64_t* number = nullptr;
};

/// Absent entries leave their fields at the defaults.
void read(const platform::Dictionary& dictionary, const platform::Logger& logger,
          std::initializer_list<Field> fields) {
  const CheckedDictionary entries(dictionary, "setting", logger);
  for (const auto& field : fields) {
    if (field.flag != nullptr) {
      *field.flag = entries.boolean(field.key).value_or(*field.flag);
    } else if (const auto value = entries.integer(field.key)) {
      *field.number = static_cast<std::uint64_t>(std::int64_t{*value});
    }
  }
}

auto schedule(const MoveSettings& settings) {
  return std::tie(settings.moveEnabled, settings.onlyWeekdays, settings.sensitivity,
                  settings.remindPeriod, settings.startSteps, settings.endSteps);
}

}  // namespace

MoveSettings MoveSettings::fromDictionary(const platform::Dictionary& entries,
                                          const platform::Logger& logger) {
  MoveSettings settings;
  read(entries, logger,
       {{"moveEnabled", settings.moveEnabled},
        {"onlyWeekdays", settings.onlyWeekdays},
        {"sensitivity", settings.sensitivity},
        {"stepRepeat", settings.stepRepeat},
        {"remindPeriod", settings.remindPeriod},
        {"startSteps", settings.startSteps},
        {"endSteps", settings.endSteps}});
  return settings;
}

bool MoveSettings::schedulesLike(const MoveSettings& other) const {
  return schedule(*this) == schedule(other);
}

Settings Settings::fromDictionary(platform::Dictionary entries, const platform::Logger& logger) {
  Settings settings;
  read(entries, logger,
       {{"enabled", settings.enabled},
        {"donotdisturb", settings.doNotDisturb},
        {"donotannoy", settings.doNotAnnoy},
        {"alarmSwitch", settings.alarmSwitch},
        {"vibrateHrMeasure", settings.vibrateHrMeasure},
        {"onlyLocked", settings.onlyLocked},
        {"connectedMode", settings.connectedMode},
        {"continuousHr", settings.continuousHr},
        {"stopwatchSwitch", settings.stopwatchSwitch},
        {"mode", settings.mode},
        {"timeout", settings.timeout},
        {"hrInterval", settings.hrInterval}});
  settings.move = MoveSettings::fromDictionary(entries, logger);
  settings.snapshot = std::move(entries);
  return settings;
}

AppAlertSettings Settings::alertOfApp(std::string_view sectionID,
                                      const platform::Logger& logger) const {
  const CheckedDictionary entries(snapshot, "setting", logger);
  std::string key;
  const auto keyOf = [&](std::string_view prefix) -> const std::string& {
    return key.assign(prefix).append(sectionID);
  };
  const auto number = [&](std::string_view prefix) {
    return static_cast<std::uint64_t>(std::int64_t{entries.integer(keyOf(prefix)).value_or(0)});
  };
  AppAlertSettings alert;
  alert.preview = entries.boolean(keyOf("MBPreview-")).value_or(false);
  alert.repeat = number("MBRepeat-") + 1;  // the setting counts what comes after the first
  alert.icon = number("MBIcon-");
  alert.pattern = number("MBPattern-");
  return alert;
}

}  // namespace wrixel2::daemon
