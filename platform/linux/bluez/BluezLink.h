#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/Error.h"
#include "platform/Peripheral.h"
#include "platform/RunLoop.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

class BluezCentralContext;

/// What a link tells its peripheral.
class BluezLinkObserver {
 public:
  virtual void linkCameUp() = 0;
  /// Nothing goes over it any more. linkEnded() follows, at once or a moment later.
  virtual void linkLost() = 0;
  /// It ended, or a connection that was asked for was cancelled. No error: we asked for it, or the
  /// radio is gone.
  virtual void linkEnded(const ErrorOrNone& error) = 0;
  virtual void linkFailed(const Error& error) = 0;

 protected:
  BluezLinkObserver() = default;
  BluezLinkObserver(const BluezLinkObserver&) = default;
  BluezLinkObserver& operator=(const BluezLinkObserver&) = default;
  ~BluezLinkObserver() = default;
};

/// Our claim on the link to one device: it makes it, keeps trying, and ends it.
///
/// The system's link and ours are two things. `Connected` may be another program's doing, and it
/// stays true for a while after we asked for the end; a claim begins with the answer to our own
/// Connect, and no new one is asked for before an old link is gone.
class BluezLink {
 public:
  /// Beyond the kernel's 20 s for the link and 40 s for its channel.
  static constexpr TimeInterval kConnectTimeout = std::chrono::seconds(120);
  static constexpr TimeInterval kDisconnectTimeout = std::chrono::seconds(60);
  /// An end takes about 2 s, and it can hang.
  static constexpr TimeInterval kEndWatchdog = std::chrono::seconds(10);
  /// Once the system's link is there, Connect is answered at once. It can also be forgotten.
  static constexpr TimeInterval kAnswerGrace = std::chrono::seconds(5);
  /// Between attempts to connect: doubled from the first to the last.
  static constexpr TimeInterval kFirstRetry = std::chrono::seconds(1);
  static constexpr TimeInterval kLastRetry = std::chrono::seconds(10);
  /// Within this time of the beginning, an end for an unknown reason is the device's refusal.
  static constexpr TimeInterval kRefusalTime = std::chrono::seconds(30);
  /// An end for an unknown reason is told after this time: the adapter's loss of power ends the
  /// links first and is announced after them, and it makes their end one without an error.
  static constexpr TimeInterval kPowerGrace = std::chrono::milliseconds(500);

  /// Both outlive it; so does whatever answers the context's calls end before it.
  BluezLink(BluezCentralContext& context, BluezLinkObserver& observer, std::string device);

  /// As it is to be shown: what is not told yet is not over yet.
  PeripheralState state() const;
  bool isUp() const { return phase_ == Phase::up; }
  /// Waits for the device to be seen.
  bool isSearching() const { return phase_ == Phase::waiting && wait_ == Wait::device; }
  /// Waits for permission to call Connect, which cannot be while we scan.
  bool isReady() const { return phase_ == Phase::waiting && wait_ == Wait::permission; }
  bool isCalling() const { return phase_ == Phase::calling; }

  void connect();
  void cancel();
  /// Ends the system's link, which is not our claim but of an earlier run; nobody is told.
  void endLeftover();
  /// Given only while isReady().
  void permitCall();
  /// Asks for the end without waiting for anything: the process is about to go.
  void abandon();

  // --- what is heard of the device ---

  void deviceSeen();
  void deviceRemoved();
  void connectedChanged(bool isConnected);
  void disconnectedBecause(const std::string& reason);
  /// Power, bluetoothd or the bus is gone, and every link with it.
  void radioLost();

 private:
  enum class Phase : std::uint8_t {
    down,
    waiting,  ///< for what Wait says, to call Connect
    calling,
    up,
    lost,   ///< ended by another's doing, which is not told yet
    ending  ///< by our doing
  };
  enum class Wait : std::uint8_t { device, permission, pause };

  std::string path() const;
  bool isConnectedOnBus() const;
  void pursue();
  void waitFor(Wait wait);
  void pauseBeforeRetry();
  void connectReplied(const BluezReply& reply);
  /// bluetoothd may answer without having announced that the device is connected, and announce it
  /// without answering.
  void askWhetherConnected();
  void expectAnswerSoon();
  void goUp();
  void lose();
  void fail(const Error& error);
  void askForEnd();
  void endingGoesOn();
  void endHangs();
  void endWith(const ErrorOrNone& error);
  void forgetCalls();

  BluezCentralContext& context_;
  BluezLinkObserver& observer_;
  std::string device_;
  Phase phase_ = Phase::down;
  Wait wait_ = Wait::device;
  std::unique_ptr<Timer> timer_;  ///< of the phase: retry, grace or watchdog
  TimeInterval retryDelay_{};
  MonotonicTime upSince_{};
  std::string reason_;
  Error lossError_;
  std::uint64_t era_ = 0;  ///< calls of earlier eras are not waited for
  bool connectPending_ = false;
  bool disconnectPending_ = false;
  bool wasUp_ = false;          ///< the link that is ending
  bool isEndTold_ = false;      ///< of the link that is ending
  bool connectsAgain_ = false;  ///< once the end is told and done
};

}  // namespace wrixel2::platform::bluez
