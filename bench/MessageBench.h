#pragma once

#include "bench/Extent.h"
#include "bench/Report.h"
#include "bench/ServedBand.h"

namespace wrixel2::bench {

/// Times what the daemon does with messages against the least that it could do, in turn, in one
/// session.
///
/// The band is to be connected, and used by nobody else meanwhile.
class MessageBench {
 public:
  MessageBench(ServedBand& served, const Programs& programs, const Extent& extent, Report& report);

  /// From the moment in which a call's caller is sent to the one in which the write arrives at
  /// bluetoothd.
  void measureLatency();
  /// Messages that wait already are handled as fast as they can be.
  void measureThroughput();

 private:
  struct Side {
    platform::linux::BusAddress center;
    Process* process = nullptr;
    std::size_t handled = 0;
    std::chrono::nanoseconds time{};
    std::chrono::nanoseconds processorTime{};
  };

  double timeToWrite(const platform::linux::BusAddress& center);
  void handleBatch(Side& side);

  ServedBand& served_;
  const Extent& extent_;
  Report& report_;
  platform::linux::BusAddress floorCenter_;
  std::unique_ptr<Process> floor_;
};

}  // namespace wrixel2::bench
