#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "platform/CentralManager.h"
#include "platform/simulated/VirtualRadio.h"

namespace wrixel2::platform::simulated {

class SimulatedPeripheral;
class VirtualLink;

/// A central manager on the virtual radio. It must not outlive the radio; destroying it ends its
/// links.
class SimulatedCentralManager final : public CentralManager {
 public:
  /// The radio is borrowed. Queues the report of the radio's state.
  SimulatedCentralManager(VirtualRadio& radio, std::weak_ptr<CentralManagerDelegate> delegate,
                          Queue queue);
  SimulatedCentralManager(const SimulatedCentralManager&) = delete;
  SimulatedCentralManager& operator=(const SimulatedCentralManager&) = delete;
  ~SimulatedCentralManager() override;

  CentralState state() const override { return state_; }
  /// Without effect while the radio is not powered on; in place of a scan that is running.
  void scanForPeripheralsWithServices(const std::optional<std::vector<UUID>>& services,
                                      const Dictionary& options) override;
  void stopScan() override;
  void connectPeripheral(const std::shared_ptr<Peripheral>& peripheral,
                         const Dictionary& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<Peripheral>& peripheral) override;
  void endLeftoverLink(const std::shared_ptr<Peripheral>& peripheral) override;
  bool respondsToRetrieveConnectedPeripherals() const override;
  std::vector<std::shared_ptr<Peripheral>> retrieveConnectedPeripheralsWithServices(
      const std::vector<UUID>& services) override;
  std::vector<std::shared_ptr<Peripheral>> retrievePeripheralsWithIdentifiers(
      const std::vector<UUID>& identifiers) override;

  VirtualRadio& radio() const { return radio_; }

  // --- from the radio ---

  void reportState(CentralState state);
  /// Ends the scan and every connection that waits.
  void radioLost();
  /// Something came, went, or can be connected to.
  void airChanged();

  // --- from its peripherals: events, in the order in which they are delivered ---

  /// Each change is made in the turn in which the delegate hears of it.
  void deliverConnection(SimulatedPeripheral& peripheral, Task change);
  void deliverConnectionFailure(SimulatedPeripheral& peripheral, const Error& error, Task change);
  void deliverDisconnection(SimulatedPeripheral& peripheral, const ErrorOrNone& error, Task change);
  /// An answer on a link that has ended goes before the disconnection, if that still waits.
  void deliverAnswer(SimulatedPeripheral& peripheral, bool isLinked, Task task);
  void dropConnectionEvent(SimulatedPeripheral& peripheral);

 private:
  enum class EventKind : std::uint8_t { connection, disconnection, other };

  struct Event {
    EventKind kind = EventKind::other;
    const SimulatedPeripheral* subject = nullptr;
    Task task;
  };

  void deliver(Event event, bool beforeDisconnection = false);
  void deliverNext();
  std::shared_ptr<SimulatedPeripheral> peripheralOf(VirtualLink& link);
  bool isHeard(const VirtualLink& link) const;
  void updateScan();
  void hearAdvertisements();
  void deliverAdvertisement(VirtualLink& link);
  template <typename Call>
  void tellDelegate(const Call& call);

  VirtualRadio& radio_;
  std::weak_ptr<CentralManagerDelegate> delegate_;
  Queue queue_;
  CentralState state_ = CentralState::unknown;
  std::deque<Event> events_;
  std::vector<std::shared_ptr<SimulatedPeripheral>> peripherals_;  ///< in the order of finding

  std::shared_ptr<void> scan_;  ///< lives as long as the scan that is running
  std::optional<std::vector<UUID>> scanServices_;
  bool reportsDuplicates_ = false;
  std::set<const VirtualLink*> reported_;
  std::unique_ptr<Timer> scanTimer_;

  /// What is queued finds through it whether the manager still exists.
  std::shared_ptr<SimulatedCentralManager*> self_ =
      std::make_shared<SimulatedCentralManager*>(this);
};

}  // namespace wrixel2::platform::simulated
