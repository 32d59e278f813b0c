#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/MessageCenter.h"

namespace wrixel2::companion {

/// Hands notifications on to the daemon as "bulletinRequest", one at a time and in order, and keeps
/// each until the daemon has answered it. What a daemon did not answer before it went is sent again
/// to the next one; an answer that is only late costs time, and never makes a second alert.
///
/// At most 256 and 1 MB of texts are kept, for at most 60 seconds: an alert that comes later than
/// that tells of nothing new. One that is dropped has a line in the log, with the number of all of
/// them so far.
class BulletinOutbox {
 public:
  static constexpr std::size_t kMostWaiting = 256;
  static constexpr std::size_t kMostBytes = 1'000'000;
  static constexpr platform::TimeInterval kLongestWait = platform::seconds(60);

  /// By which one bulletin is named afterwards.
  using Ticket = std::uint64_t;
  using BeforeSending = std::function<void(const std::string& sectionID)>;

  /// Holds back at first. `beforeSending` is called right before each bulletin is sent, with the
  /// app that it is of. The rest outlives the outbox.
  BulletinOutbox(platform::MessageCenter& daemon, const platform::Clock& clock, platform::Log& log,
                 BeforeSending beforeSending);
  BulletinOutbox(const BulletinOutbox&) = delete;
  BulletinOutbox& operator=(const BulletinOutbox&) = delete;
  /// Says in the log how many were waiting still.
  ~BulletinOutbox();

  Ticket add(const std::string& sectionID, platform::Dictionary bulletin);

  /// Takes back one that is out of date. Returns false where it was waiting still and is now
  /// dropped; otherwise the daemon has it or may have it, and may have to be told. One that is on
  /// the way is at least not sent a second time.
  bool takeBack(Ticket ticket);

  /// There is no daemon, or none that has been introduced to.
  void hold() { isOpen_ = false; }
  /// The daemon can be sent to, from now on and until nobody answers or hold() is called.
  void resume();

 private:
  struct Waiting {
    Ticket ticket = 0;
    std::string sectionID;
    platform::Dictionary bulletin;
    platform::MonotonicTime since;
    std::size_t bytes = 0;  ///< of its texts
    bool isTakenBack = false;
  };

  void sendNext();
  bool sendFirst();
  void answered(const platform::Result<platform::Dictionary>& answer);
  void dropOldOnes();
  void drop(std::size_t index, const char* reason);
  void remove(std::size_t index);
  /// Those before it are on the way.
  std::size_t firstUnsent() const { return pending_ ? 1 : 0; }

  platform::MessageCenter& daemon_;
  const platform::Clock& clock_;
  platform::Logger logger_;
  BeforeSending beforeSending_;
  std::deque<Waiting>
      waiting_;  ///< oldest first; the first one is on the way while pending_ is set
  std::unique_ptr<platform::PendingAnswer> pending_;
  std::size_t bytes_ = 0;  ///< of the texts of all
  bool isOpen_ = false;
  Ticket lastTicket_ = 0;
  std::uint64_t dropped_ = 0;
};

}  // namespace wrixel2::companion
