#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "companion/MediaControl.h"
#include "platform/Log.h"
#include "platform/linux/PropertyWatch.h"

namespace wrixel2::companion {

/// The media players of the session (MPRIS D-Bus Interface Specification 2.2). They are followed
/// only while somebody wants to control them: a player that plays would wake us for each title.
class MprisPlayers final : public MediaControl {
 public:
  /// Both outlive it.
  MprisPlayers(platform::linux::BusConnection& sessionBus, platform::Log& log)
      : bus_(sessionBus), logger_(log, "MprisPlayers") {}
  MprisPlayers(const MprisPlayers&) = delete;
  MprisPlayers& operator=(const MprisPlayers&) = delete;

  void setFollowing(bool isFollowing);

  /// Of the player that plays, else of the one that played last, else of the first.
  void playPause() override;

 private:
  struct Player {
    std::string name;
    bool isPlaying = false;
    std::uint64_t lastPlayed = 0;  ///< 0: never, else the higher the later
    std::unique_ptr<platform::linux::PropertyWatch> watch;
  };

  void appeared(const std::string& name);
  void vanished(const std::string& name);
  void statusIs(const std::string& name,
                const platform::linux::PropertyWatch::Properties& properties);

  platform::linux::BusConnection& bus_;
  platform::Logger logger_;
  std::unique_ptr<platform::linux::BusService> driver_;  ///< while they are followed
  std::list<Player> players_;                            ///< as they appeared
  std::uint64_t plays_ = 0;
};

}  // namespace wrixel2::companion
