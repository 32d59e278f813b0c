#include "ctl/StatusReport.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "ctl/Context.h"
#include "ctl/TextRows.h"
#include "ctl/TimeText.h"

namespace wrixel2::ctl {

namespace {

using platform::Dictionary;
using Rows = std::vector<std::vector<std::string>>;

std::string textOf(const Dictionary& dictionary, std::string_view key) {
  return platform::textForKey(dictionary, key).value_or("");
}

std::int64_t numberOf(const Dictionary& dictionary, std::string_view key) {
  const auto* value = platform::find(dictionary, key);
  return value != nullptr ? value->longValue() : 0;
}

std::string linkOf(const Dictionary& daemon) {
  const std::string state = textOf(daemon, "State");
  const std::string band = textOf(daemon, "Band");
  const std::string behind = band.empty() ? "" : ", band " + band;
  if (state == "off") {
    return "the radio is off" + behind;
  }
  if (state == "connected" && !platform::boolForKey(daemon, "Initialized")) {
    return "connected, not yet ready" + behind;
  }
  return printable(state + behind);
}

void addDaemon(const Dictionary& daemon, platform::Date now, const platform::TimeZone& zone,
               Rows& rows) {
  const std::string lockedTo = textOf(daemon, "LockedTo");
  const std::int64_t battery = numberOf(daemon, "Battery");
  const std::int64_t steps = numberOf(daemon, "Steps");
  rows.push_back({"Link", linkOf(daemon)});
  rows.push_back({"Ready", platform::boolForKey(daemon, "Initialized") ? "yes" : "no"});
  if (const std::string authentication = textOf(daemon, "Authentication");
      !authentication.empty()) {
    rows.push_back({"Pairing key", printable(authentication)});
  }
  rows.push_back({"Locked to", lockedTo.empty() ? "no band" : printable(lockedTo)});
  rows.push_back({"Battery", battery == 0 ? "unknown" : fmt::format("{} %", battery)});
  // A band that has told anything has told its battery.
  rows.push_back({"Steps", steps == 0 && battery == 0 ? "unknown" : fmt::format("{}", steps)});
  rows.push_back({"Next measurement", plannedTime(numberOf(daemon, "NextMeasurement"), now, zone)});
  rows.push_back({"Next step check", plannedTime(numberOf(daemon, "NextStepCheck"), now, zone)});
}

void addCompanion(const Dictionary& companion, Rows& rows) {
  if (companion.contains("DoNotDisturb")) {
    rows.push_back(
        {"Do Not Disturb", platform::boolForKey(companion, "DoNotDisturb") ? "on" : "off"});
  }
  if (companion.contains("Locked")) {
    rows.push_back({"Phone", platform::boolForKey(companion, "Locked") ? "locked" : "unlocked"});
  }
}

void addMembers(const Dictionary& from, const auto& names, Dictionary& to) {
  for (const auto& [property, member] : names) {
    if (const auto* value = platform::find(from, property)) {
      to.insert_or_assign(std::string(member), *value);
    }
  }
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kDaemonMembers = {{
    {"State", "state"},
    {"Band", "band"},
    {"Initialized", "initialized"},
    {"LockedTo", "lockedTo"},
    {"Battery", "battery"},
    {"Steps", "steps"},
    {"NextMeasurement", "nextMeasurement"},
    {"NextStepCheck", "nextStepCheck"},
    {"Authentication", "authentication"},
    {"Problem", "problem"},
}};
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kCompanionMembers = {{
    {"DoNotDisturb", "doNotDisturb"},
    {"Locked", "locked"},
    {"SettingsProblem", "settingsProblem"},
}};

}  // namespace

platform::Result<StatusReport> StatusReport::of(Session& session) {
  auto daemon = session.properties(Peer::daemon);
  if (!daemon) {
    return daemon.error();
  }
  auto companion = session.properties(Peer::companion);
  if (!companion) {
    return companion.error();
  }
  return StatusReport{std::move(*daemon), std::move(*companion)};
}

std::vector<std::string> StatusReport::problems() const {
  std::vector<std::string> problems;
  if (!daemon) {
    problems.emplace_back("the daemon does not run");
  } else {
    if (const std::string problem = textOf(*daemon, "Problem"); !problem.empty()) {
      problems.push_back(printable(problem));
    } else if (textOf(*daemon, "State") == "off") {
      problems.emplace_back("there is no Bluetooth; \"wrixel2ctl doctor\" says more");
    }
    if (textOf(*daemon, "Authentication") == "refused") {
      problems.emplace_back(kKeyRefused);
    }
  }
  if (!companion) {
    problems.emplace_back(
        "the companion does not run: no settings, no notifications, no pairing key");
  } else if (const std::string problem = textOf(*companion, "SettingsProblem"); !problem.empty()) {
    problems.push_back("the settings are not used: " + printable(problem));
  }
  return problems;
}

std::string StatusReport::text(platform::Date now, const platform::TimeZone& zone) const {
  Rows rows;
  rows.push_back({"Daemon", daemon ? "runs" : "does not run"});
  if (daemon) {
    addDaemon(*daemon, now, zone, rows);
  }
  rows.push_back({"Companion", companion ? "runs" : "does not run"});
  if (companion) {
    addCompanion(*companion, rows);
  }
  bool isFirst = true;
  for (const std::string& problem : problems()) {
    rows.push_back({isFirst ? "Wrong" : "", problem});
    isFirst = false;
  }
  return alignedRows(rows);
}

Dictionary StatusReport::json() const {
  Dictionary daemonMembers{{"running", daemon.has_value()}};
  addMembers(daemon.value_or(Dictionary{}), kDaemonMembers, daemonMembers);
  Dictionary companionMembers{{"running", companion.has_value()}};
  addMembers(companion.value_or(Dictionary{}), kCompanionMembers, companionMembers);
  const auto sentences = problems();
  return {{"daemon", std::move(daemonMembers)},
          {"companion", std::move(companionMembers)},
          {"problems", platform::Array(sentences.begin(), sentences.end())}};
}

}  // namespace wrixel2::ctl
