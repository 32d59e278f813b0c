#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wrixel2::bench {

/// What a figure is held to.
struct Goal {
  enum class Kind : std::uint8_t { atMostRatio, atLeastRatio, atMost };
  Kind kind = Kind::atMost;
  double limit = 0;
};

/// One figure, where there is one beside that of the floor from the same run.
struct Figure {
  std::string group;
  std::string what;
  std::string unit;
  double value = 0;
  std::optional<double> floor;
  std::optional<Goal> goal;

  /// None without a floor, or with one of 0.
  std::optional<double> ratio() const;
  /// None without a goal.
  std::optional<bool> isMet() const;
};

/// The value below which the part (0 to 1) of the values lies; 0 of no values.
double quantile(std::vector<double> values, double part);

/// What was measured, in the order in which it was.
class Report {
 public:
  void add(Figure figure);

  /// A table for people, with the goals' outcome.
  std::string table() const;
  /// The same for programs: an object with the machine and the list of figures.
  std::string json(std::string_view mode) const;

 private:
  std::vector<Figure> figures_;
};

}  // namespace wrixel2::bench
