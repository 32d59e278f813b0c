#include "daemon/Settings.h"

#include <string>
#include <tuple>
#include <utility>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

namespace {

/// Absent entries leave the field at its default.
class FieldReader {
 public:
  FieldReader(const platform::Dictionary& entries, const platform::Logger& logger)
      : entries_(entries, "setting", logger) {}

  void read(std::string_view key, bool& field) const {
    field = entries_.boolean(key).value_or(field);
  }
  void read(std::string_view key, std::uint64_t& field) const {
    if (const auto value = entries_.integer(key)) {
      field = static_cast<std::uint64_t>(std::int64_t{*value});
    }
  }

 private:
  CheckedDictionary entries_;
};

auto schedule(const MoveSettings& settings) {
  return std::tie(settings.moveEnabled, settings.onlyWeekdays, settings.sensitivity,
                  settings.remindPeriod, settings.startSteps, settings.endSteps);
}

}  // namespace

MoveSettings MoveSettings::fromDictionary(const platform::Dictionary& entries,
                                          const platform::Logger& logger) {
  MoveSettings settings;
  const FieldReader reader(entries, logger);
  reader.read("moveEnabled", settings.moveEnabled);
  reader.read("onlyWeekdays", settings.onlyWeekdays);
  reader.read("sensitivity", settings.sensitivity);
  reader.read("stepRepeat", settings.stepRepeat);
  reader.read("remindPeriod", settings.remindPeriod);
  reader.read("startSteps", settings.startSteps);
  reader.read("endSteps", settings.endSteps);
  return settings;
}

bool MoveSettings::schedulesLike(const MoveSettings& other) const {
  return schedule(*this) == schedule(other);
}

Settings Settings::fromDictionary(platform::Dictionary entries, const platform::Logger& logger) {
  Settings settings;
  const FieldReader reader(entries, logger);
  reader.read("enabled", settings.enabled);
  reader.read("donotdisturb", settings.doNotDisturb);
  reader.read("donotannoy", settings.doNotAnnoy);
  reader.read("alarmSwitch", settings.alarmSwitch);
  reader.read("vibrateHrMeasure", settings.vibrateHrMeasure);
  reader.read("onlyLocked", settings.onlyLocked);
  reader.read("connectedMode", settings.connectedMode);
  reader.read("continuousHr", settings.continuousHr);
  reader.read("stopwatchSwitch", settings.stopwatchSwitch);
  reader.read("mode", settings.mode);
  reader.read("timeout", settings.timeout);
  reader.read("hrInterval", settings.hrInterval);
  settings.move = MoveSettings::fromDictionary(entries, logger);
  settings.snapshot = std::move(entries);
  return settings;
}

AppAlertSettings Settings::alertOfApp(std::string_view sectionID,
                                      const platform::Logger& logger) const {
  const CheckedDictionary entries(snapshot, "setting", logger);
  const auto number = [&](std::string_view prefix) {
    const auto key = std::string(prefix).append(sectionID);
    return static_cast<std::uint64_t>(std::int64_t{entries.integer(key).value_or(0)});
  };
  AppAlertSettings alert;
  alert.preview = entries.boolean(std::string("MBPreview-").append(sectionID)).value_or(false);
  alert.repeat = number("MBRepeat-") + 1;  // the setting counts what comes after the first
  alert.icon = number("MBIcon-");
  alert.pattern = number("MBPattern-");
  return alert;
}

}  // namespace wrixel2::daemon
