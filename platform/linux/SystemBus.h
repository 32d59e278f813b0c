#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>

#include "platform/Backoff.h"
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

/// A connection to the machine's bus that is made anew when the bus comes back. The loop never
/// waits for it.
///
/// Without a bus it watches for the bus's socket, at no cost, and tries by itself with pauses that
/// grow.
class SystemBus {
 public:
  static constexpr std::array<TimeInterval, 6> kPauses = {
      std::chrono::seconds(1), std::chrono::seconds(5), std::chrono::seconds(30),
      std::chrono::minutes(1), std::chrono::minutes(2), std::chrono::minutes(5)};
  /// A bus that has not let us in by then is given up.
  static constexpr TimeInterval kDeadline = std::chrono::seconds(25);

  /// The machine's own bus unless another D-Bus address is given. Loop, observer and pauses outlive
  /// it; the observer is told nothing when it is destroyed.
  SystemBus(LinuxRunLoop& loop, SystemBusObserver& observer, std::string address = {},
            TimeInterval deadline = kDeadline, std::span<const TimeInterval> pauses = kPauses);
  SystemBus(const SystemBus&) = delete;
  SystemBus& operator=(const SystemBus&) = delete;
  ~SystemBus();

  /// The first attempt is made in a turn of its own.
  void start();

 private:
  using Life = std::shared_ptr<char>;

  void postDuring(const Life& life, Task task);
  void watchSocket();
  void socketChanged();
  void connect();
  void connected();
  void failed(const Error& error);

  LinuxRunLoop& loop_;
  SystemBusObserver& observer_;
  std::string address_;
  TimeInterval deadline_;
  Backoff pauses_;
  std::unique_ptr<SocketWatch> socketWatch_;
  std::unique_ptr<Timer> timer_;  ///< of the attempt that is under way, or until the next
  bool isConnected_ = false;
  /// What is queued holds one of them weakly.
  Life life_ = std::make_shared<char>();
  Life attempt_;
  std::unique_ptr<BusConnection> connection_;
};

}  // namespace wrixel2::platform::linux
