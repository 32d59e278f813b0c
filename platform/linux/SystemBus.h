#pragma once

#include <memory>
#include <string>

#include "platform/RunLoop.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::linux {

class LinuxRunLoop;
class SocketWatch;

/// Who uses a SystemBus.
class SystemBusObserver {
 public:
  virtual ~SystemBusObserver() = default;
  /// There is a connection, until busUnavailable(). An error gives it up as one that cannot be
  /// used.
  virtual ErrorOrNone busConnected(BusConnection& connection) = 0;
  /// There is none, or no longer: whatever is registered with it has to be dropped now. Told after
  /// every attempt that failed.
  virtual void busUnavailable(const Error& error) = 0;
};

/// A connection to the machine's bus that is made anew when the bus comes back.
///
/// Without a bus it waits for the bus's socket, at no cost.
class SystemBus {
 public:
  /// After the last sign of life of a socket that does not let us in.
  static constexpr TimeInterval kSecondAttempt = std::chrono::seconds(1);
  /// Between attempts at a bus whose address names no file that could be watched.
  static constexpr TimeInterval kBlindAttempt = std::chrono::seconds(60);

  /// The machine's own bus unless another D-Bus address is given. Loop and observer outlive it; the
  /// observer is told nothing when it is destroyed.
  SystemBus(LinuxRunLoop& loop, SystemBusObserver& observer, std::string address = {});
  SystemBus(const SystemBus&) = delete;
  SystemBus& operator=(const SystemBus&) = delete;
  ~SystemBus();

  /// The first attempt is made in a turn of its own.
  void start();

 private:
  void postWhileAlive(Task task);
  void connect();
  void awaitBus();
  void socketChanged();
  void connectionLost();

  LinuxRunLoop& loop_;
  SystemBusObserver& observer_;
  std::string address_;
  std::unique_ptr<SocketWatch> socketWatch_;
  std::unique_ptr<Timer> attemptTimer_;
  /// What is queued holds this weakly.
  std::shared_ptr<char> life_ = std::make_shared<char>();
  std::unique_ptr<BusConnection> connection_;
};

}  // namespace wrixel2::platform::linux
