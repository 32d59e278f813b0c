#include "bench/Report.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <sys/utsname.h>

namespace wrixel2::bench {
namespace {

std::string number(double value) {
  const double size = std::abs(value);
  return size >= 100 || value == std::floor(value) ? fmt::format("{:.0f}", value)
         : size >= 10                              ? fmt::format("{:.1f}", value)
                                                   : fmt::format("{:.2f}", value);
}

std::string textOfGoal(const Goal& goal, std::string_view unit) {
  switch (goal.kind) {
    case Goal::Kind::atMostRatio:
      return fmt::format("<= {} x", number(goal.limit));
    case Goal::Kind::atLeastRatio:
      return fmt::format(">= {} x", number(goal.limit));
    case Goal::Kind::atMost:
      return fmt::format("<= {} {}", number(goal.limit), unit);
  }
  return {};
}

/// The texts here are our own: without quotes and control characters.
std::string quoted(std::string_view text) { return fmt::format("\"{}\"", text); }

std::string jsonOf(const Figure& figure) {
  std::string text =
      fmt::format(R"({{"group": {}, "what": {}, "unit": {}, "value": {:.6g})", quoted(figure.group),
                  quoted(figure.what), quoted(figure.unit), figure.value);
  if (figure.floor) {
    text += fmt::format(R"(, "floor": {:.6g})", *figure.floor);
  }
  if (const auto ratio = figure.ratio()) {
    text += fmt::format(R"(, "ratio": {:.4g})", *ratio);
  }
  if (figure.goal) {
    text += fmt::format(R"(, "goal": {}, "met": {})", quoted(textOfGoal(*figure.goal, figure.unit)),
                        *figure.isMet());
  }
  return text + "}";
}

}  // namespace

std::optional<double> Figure::ratio() const {
  return floor && *floor != 0 ? std::optional(value / *floor) : std::nullopt;
}

std::optional<bool> Figure::isMet() const {
  if (!goal) {
    return std::nullopt;
  }
  switch (goal->kind) {
    case Goal::Kind::atMostRatio:
      return ratio() && *ratio() <= goal->limit;
    case Goal::Kind::atLeastRatio:
      return ratio() && *ratio() >= goal->limit;
    case Goal::Kind::atMost:
      return value <= goal->limit;
  }
  return std::nullopt;
}

double quantile(std::vector<double> values, double part) {
  if (values.empty()) {
    return 0;
  }
  const auto index = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + index, values.end());
  return values[static_cast<std::size_t>(index)];
}

void Report::add(Figure figure) { figures_.push_back(std::move(figure)); }

std::string Report::table() const {
  std::string text;
  std::string group;
  for (const Figure& figure : figures_) {
    if (figure.group != group) {
      group = figure.group;
      text += fmt::format("\n{:<50}{:>10} {:<10}{:>10}{:>8}  {}\n", group, "ours", "", "floor",
                          "ratio", "goal");
    }
    const auto ratio = figure.ratio();
    text += fmt::format("  {:<48}{:>10} {:<10}{:>10}{:>8}", figure.what, number(figure.value),
                        figure.unit, figure.floor ? number(*figure.floor) : "",
                        ratio ? fmt::format("{:.2f}", *ratio) : "");
    if (figure.goal) {
      text += fmt::format("  {:<12} {}", textOfGoal(*figure.goal, figure.unit),
                          *figure.isMet() ? "met" : "MISSED");
    }
    text += '\n';
  }
  return text;
}

std::string Report::json(std::string_view mode) const {
  utsname system{};
  ::uname(&system);
  std::string text = fmt::format(
      "{{\n  \"mode\": {},\n  \"machine\": {{\"kernel\": {}, \"architecture\": {}, "
      "\"processors\": {}}},\n  \"figures\": [\n",
      quoted(mode), quoted(system.release), quoted(system.machine),
      std::thread::hardware_concurrency());
  for (std::size_t index = 0; index < figures_.size(); ++index) {
    text +=
        fmt::format("    {}{}\n", jsonOf(figures_[index]), index + 1 < figures_.size() ? "," : "");
  }
  return text + "  ]\n}\n";
}

}  // namespace wrixel2::bench
