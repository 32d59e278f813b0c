#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/CentralManager.h"
#include "platform/linux/bluez/BluezCentralContext.h"
#include "platform/linux/bluez/BluezPeripheral.h"
#include "platform/linux/bluez/BluezScanner.h"

namespace wrixel2::platform::bluez {

/// The machine's radio in the central role, as a client of bluetoothd.
///
/// It follows what the bus tells and never polls: without anything to do it is never woken. What is
/// missing (the bus, bluetoothd, permission, an adapter, its power) is one line in the log, and is
/// made use of as soon as it is there.
class BluezCentralManager final : public CentralManager,
                                  private BluezBusListener,
                                  private BluezCentralContext,
                                  private BluezLinkAnswers {
 public:
  static constexpr TimeInterval kObjectsTimeout = std::chrono::seconds(60);

  struct Options {
    /// "hci0"; none: the first adapter that has power, else the first.
    std::optional<std::string> adapter;
    std::vector<UUID> storedIdentifiers;
  };

  /// Loop, clock and log outlive it.
  BluezCentralManager(std::unique_ptr<BluezBus> bus, RunLoop& loop, const Clock& clock, Log& log,
                      std::weak_ptr<CentralManagerDelegate> delegate, Queue queue, Options options);
  BluezCentralManager(const BluezCentralManager&) = delete;
  BluezCentralManager& operator=(const BluezCentralManager&) = delete;
  /// Ends its links as endLinks() does.
  ~BluezCentralManager() override;

  std::string problem() const override { return isPoweredOn() ? std::string() : logged_; }
  CentralState state() const override { return shownState_; }
  /// Without effect while the radio is not powered on; in place of a scan that is running.
  void scanForPeripheralsWithServices(const std::optional<std::vector<UUID>>& services,
                                      const Dictionary& options) override;
  void stopScan() override;
  void connectPeripheral(const std::shared_ptr<Peripheral>& peripheral,
                         const Dictionary& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<Peripheral>& peripheral) override;
  void endLeftoverLink(const std::shared_ptr<Peripheral>& peripheral) override;
  std::vector<std::shared_ptr<Peripheral>> retrieveConnectedPeripheralsWithServices(
      const std::vector<UUID>& services) override;
  std::vector<std::shared_ptr<Peripheral>> retrievePeripheralsWithIdentifiers(
      const std::vector<UUID>& identifiers) override;

  /// Asks for the end of every link of ours, without waiting for it; nothing is told to anybody.
  void endLinks();

  /// Expires with the manager.
  std::weak_ptr<BluezCentralManager*> self() const { return self_; }

 private:
  enum class Reach : std::uint8_t { unknown, noBus, noBluez, waiting, denied, known };
  struct Scan {
    std::optional<std::vector<UUID>> services;
    bool reportsDuplicates = false;
    std::set<std::string> reported;
  };

  // What the bus tells.
  void busUnavailable(const Error& error) override;
  void bluezOwnerChanged(bool isThere) override;
  void interfacesAdded(const std::string& path, const Dictionary& interfaces) override;
  void interfacesRemoved(const std::string& path, const Array& interfaces) override;
  void propertiesChanged(const std::string& path, const std::string& interface,
                         const Dictionary& changed, const Array& invalidated) override;
  void deviceDisconnected(const std::string& path, const std::string& reason) override;

  // What the peripherals reach.
  BluezBus& bus() override { return *bus_; }
  RunLoop& runLoop() override { return loop_; }
  const Clock& clock() const override { return clock_; }
  const Logger& logger() const override { return logger_; }
  const BluezObjects& objects() const override { return objects_; }
  DeliveryQueue& deliveries() override { return deliveries_; }
  std::string pathOfDevice(const std::string& device) const override;
  bool isPoweredOn() const override { return state_ == CentralState::poweredOn; }
  void fetchObjects(Task done) override;
  void linkNeedsChanged() override;
  void didConnect(const std::shared_ptr<Peripheral>& peripheral, Task change) override;
  void didFailToConnect(const std::shared_ptr<Peripheral>& peripheral, const Error& error,
                        Task change) override;
  void didDisconnect(const std::shared_ptr<Peripheral>& peripheral, const ErrorOrNone& error,
                     Task change) override;

  // Objects and adapters.
  void getObjects();
  void objectsReplied(const BluezReply& reply);
  bool takeObjects(const BluezReply& reply);
  void reconcile();
  std::vector<std::string> usableAdapters() const;
  std::string chooseAdapter() const;
  bool hasPower(const std::string& adapter) const;

  // State.
  void review();
  void reviewAdapter();
  void setState(CentralState state);
  void logOnce(LogLevel level, const std::string& line);

  // Devices.
  /// The device whose object, or one of whose GATT objects, has the path; empty for others.
  std::string deviceOfPath(const std::string& path) const;
  BluezPeripheral* knownPeripheral(const std::string& path) const;
  std::shared_ptr<BluezPeripheral> peripheralOf(const std::string& path);
  void deviceChanged(const std::string& path, const Dictionary& changed);
  bool isWanted(const std::string& path, const Dictionary& device,
                const std::optional<std::vector<UUID>>& services) const;
  void heard(const std::string& path);
  void advertise(const std::string& path, const Dictionary& device);
  template <typename Call>
  void tellDelegate(const Call& call);

  RunLoop& loop_;
  const Clock& clock_;
  Logger logger_;
  std::weak_ptr<CentralManagerDelegate> delegate_;
  DeliveryQueue deliveries_;
  std::optional<std::string> wantedAdapter_;
  std::set<UUID> knownIdentifiers_;  ///< used in this run or seen in earlier ones

  BluezObjects objects_;
  Reach reach_ = Reach::unknown;
  bool hadBluez_ = false;  ///< since the bus was reached
  std::string adapter_;    ///< the path of the one in use, empty for none
  CentralState state_ = CentralState::unknown;
  CentralState shownState_ = CentralState::unknown;
  std::string logged_;

  std::shared_ptr<Scan> scan_;  ///< while there is one; what is delivered of it holds it weakly
  std::map<std::string, std::shared_ptr<BluezPeripheral>, std::less<>> peripherals_;
  std::unique_ptr<BluezBus> bus_;
  BluezScanner scanner_;
  std::shared_ptr<BluezCentralManager*> self_ = std::make_shared<BluezCentralManager*>(this);
};

}  // namespace wrixel2::platform::bluez
