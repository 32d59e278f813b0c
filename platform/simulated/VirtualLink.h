#pragma once

#include <deque>
#include <memory>
#include <optional>

#include "band/BandRadio.h"
#include "platform/RunLoop.h"
#include "platform/UniqueFunction.h"
#include "platform/simulated/VirtualRadio.h"

namespace wrixel2::platform::simulated {

class SimulatedPeripheral;

/// The air between the radio and one band, and the link in it when there is one. Operations on a
/// link are carried out one after the other, in order; while the band is out of range they wait.
class VirtualLink final : public band::BandRadio {
 public:
  /// Something for the band to do.
  struct Operation {
    /// None for a write command, which nobody answers.
    std::optional<RadioOperation> kind;
    UUID on;
    TimeInterval duration{};
    /// Called once, with an error if the operation came to nothing.
    UniqueFunction<void(const ErrorOrNone& failure)> perform;
  };

  VirtualLink(VirtualRadio& radio, std::shared_ptr<band::VirtualBand> band);
  VirtualLink(const VirtualLink&) = delete;
  VirtualLink& operator=(const VirtualLink&) = delete;
  ~VirtualLink() override;

  band::VirtualBand& band() const { return *band_; }
  bool isUp() const { return isUp_; }
  /// Whose link it is; none for one that is down, or that somebody else made.
  SimulatedPeripheral* owner() const { return owner_; }

  /// Brings the link up if it is down. The owner is borrowed until the link ends; none for somebody
  /// else.
  void claim(SimulatedPeripheral* owner);
  /// Ends it: what waits is answered with an error, then the owner hears of the end, with the error
  /// that is given.
  void end(const ErrorOrNone& error);
  /// Ends it without a word to the owner.
  void abandon();

  /// Only for the owner of a link that is up.
  void enqueue(Operation operation);
  void dropAtOperation(unsigned n, long code);

  void notify(const UUID& service, const UUID& characteristic, const Bytes& value) override;
  ErrorOrNone endLink(long code) override;
  void presenceChanged() override;

 private:
  struct PlannedDrop {
    unsigned operationsLeft = 0;
    long code = 0;
  };

  /// The task, unless this link has ended meanwhile.
  Task whileUp(Task task);
  void takeDown();
  void startNext();
  void finishOperation();

  VirtualRadio& radio_;
  std::shared_ptr<band::VirtualBand> band_;
  bool isUp_ = false;
  SimulatedPeripheral* owner_ = nullptr;
  std::shared_ptr<void> session_;  ///< lives as long as the link that is up
  std::deque<Operation> operations_;
  std::unique_ptr<Timer> operationTimer_;
  std::unique_ptr<Timer> supervisionTimer_;
  std::optional<PlannedDrop> plannedDrop_;
};

}  // namespace wrixel2::platform::simulated
