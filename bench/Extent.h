#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace wrixel2::bench {

/// How much is measured. More narrows the figures' scatter and does not change what they are of.
struct Extent {
  std::string name = "standard";
  std::size_t latencyPairs = 3000;
  std::size_t batch = 2000;         ///< messages that wait when a program starts to handle them
  std::size_t batchesOfLoad = 100;  ///< for the daemon; the floor gets half of them
  std::size_t starts = 25;
  std::size_t notifications = 4000;
  std::size_t heartRates = 300;
  std::chrono::seconds settling{30};
  std::chrono::seconds idle{60};
  double smallSeconds = 0.1;  ///< for each repetition of each small thing
  std::size_t repetitions = 5;
};

inline Extent quickExtent() {
  return {.name = "quick",
          .latencyPairs = 50,
          .batch = 200,
          .batchesOfLoad = 4,
          .starts = 2,
          .notifications = 200,
          .heartRates = 10,
          .settling = std::chrono::seconds(0),
          .idle = std::chrono::seconds(1),
          .smallSeconds = 0.001,
          .repetitions = 1};
}

inline Extent briefExtent() {
  Extent extent;
  extent.name = "brief";
  extent.settling = std::chrono::seconds(0);
  extent.idle = std::chrono::seconds(1);
  return extent;
}

inline Extent longExtent() {
  Extent extent;
  extent.name = "long";
  extent.idle = std::chrono::minutes(10);
  return extent;
}

/// The programs under measurement.
struct Programs {
  std::string daemon = WRIXEL2D_PATH;
  std::string companion = WRIXEL2_COMPANION_PATH;
  std::string latencyFloor = LATENCY_FLOOR_PATH;
  std::string idleFloor = IDLE_FLOOR_PATH;
};

}  // namespace wrixel2::bench
