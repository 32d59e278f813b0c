#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/CentralManager.h"
#include "platform/RunLoop.h"

namespace wrixel2::band {
class VirtualBand;
}  // namespace wrixel2::band

namespace wrixel2::platform::simulated {

class SimulatedCentralManager;
class VirtualLink;

/// How long things take on the air. May be changed at any time; what is under way keeps its time.
struct RadioTimings {
  TimeInterval advertisingInterval = std::chrono::milliseconds(100);
  TimeInterval connect = std::chrono::milliseconds(120);
  /// A request and its answer: a read, an acknowledged write, a subscription, a discovery.
  TimeInterval exchange = std::chrono::milliseconds(30);
  TimeInterval writeCommand = std::chrono::milliseconds(8);
  TimeInterval notification = std::chrono::milliseconds(20);
  /// After which a link to a band out of range ends with code 6.
  TimeInterval supervisionTimeout = std::chrono::seconds(5);
};

/// What a central asks of a link.
enum class RadioOperation : std::uint8_t {
  discoverServices,
  discoverCharacteristics,
  discoverDescriptors,
  read,
  write,
  setNotify,
  readDescriptor,
  writeDescriptor,
  readRSSI
};

/// A radio whose air holds virtual bands. It runs on any run loop and keeps no timer while nothing
/// happens. Everything a central manager tells its delegates comes from here through the queue that
/// the manager was given.
class VirtualRadio final : public BluetoothRadio {
 public:
  /// The loop is borrowed. Powered on from the beginning.
  explicit VirtualRadio(RunLoop& loop);
  VirtualRadio(const VirtualRadio&) = delete;
  VirtualRadio& operator=(const VirtualRadio&) = delete;
  ~VirtualRadio() override;

  std::unique_ptr<CentralManager> makeCentralManager(
      std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
      const std::vector<UUID>& storedIdentifiers) override;

  void addBand(std::shared_ptr<band::VirtualBand> band);
  /// A version-5 UUID of the band's address, the same in every run.
  static UUID identifierOf(const band::VirtualBand& band);

  RadioTimings timings;
  /// Signal strength of every band, in dBm.
  int rssi = -60;
  /// Whether the system can tell which devices are connected already.
  bool respondsToRetrieveConnectedPeripherals = true;

  RunLoop& runLoop() const { return loop_; }
  CentralState state() const { return state_; }
  /// Switches the radio off and on, or takes it away. Leaving poweredOn ends every link.
  void setState(CentralState state);

  /// A link that no central manager here has made: another program's, or left over from an earlier
  /// run. No effect on a band that has a link or is out of range.
  void connectBySomebodyElse(band::VirtualBand& band);

  /// The next connection that would come about fails with the error instead.
  void failNextConnect(Error error);
  /// Takes the error that was planned for the connection, if any.
  std::optional<Error> takeConnectFailure();
  /// The next operation of the kind (on the service or characteristic, if given) is answered with
  /// the error, without reaching the band. Several wait in order.
  void failNext(RadioOperation operation, Error error, std::optional<UUID> on = std::nullopt);
  /// The band's link ends with the code in place of its n-th operation from now (1 is the next).
  void dropAtOperation(band::VirtualBand& band, unsigned n, long code);
  /// A notification as if the band had sent it, whether or not it is subscribed.
  void injectNotification(band::VirtualBand& band, const UUID& characteristic, const Bytes& value);

 private:
  friend class SimulatedCentralManager;
  friend class VirtualLink;

  struct PlannedFailure {
    RadioOperation operation;
    Error error;
    std::optional<UUID> on;
  };

  VirtualLink* linkOf(const band::VirtualBand& band) const;
  std::optional<Error> takePlannedFailure(RadioOperation operation, const UUID& on);
  void airChanged();

  RunLoop& loop_;
  CentralState state_ = CentralState::poweredOn;
  std::vector<std::unique_ptr<VirtualLink>> links_;  ///< one for each band, linked or not
  std::vector<SimulatedCentralManager*> managers_;   ///< they take themselves out
  std::optional<Error> connectFailure_;
  std::vector<PlannedFailure> failures_;
};

}  // namespace wrixel2::platform::simulated
