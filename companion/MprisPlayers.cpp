#include "companion/MprisPlayers.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Value;
using platform::linux::BusMessage;
using platform::linux::BusService;
using platform::linux::PropertyWatch;

constexpr std::string_view kNamePrefix = "org.mpris.MediaPlayer2.";
constexpr const char* kPath = "/org/mpris/MediaPlayer2";
constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
constexpr const char* kDriver = "org.freedesktop.DBus";

}  // namespace

void MprisPlayers::setFollowing(bool isFollowing) {
  if (isFollowing == static_cast<bool>(driver_)) {
    return;
  }
  driver_.reset();
  players_.clear();
  if (!isFollowing) {
    return;
  }
  driver_ = std::make_unique<BusService>(bus_, kDriver);
  driver_->onSignal(
      kDriver, "NameOwnerChanged", "sss",
      [this](const BusMessage&, const Array& arguments) {
        const std::string& name = *arguments[0].text();
        if (arguments[2].text()->empty()) {
          vanished(name);
        } else {
          appeared(name);
        }
      },
      ",arg0namespace='org.mpris.MediaPlayer2'");
  driver_->start([this](bool) {
    driver_->ask("/org/freedesktop/DBus", kDriver, "ListNames", {}, {}, "as",
                 [this](const BusMessage&, const Array& answer) {
                   for (const Value& name : *answer.front().array()) {
                     appeared(*name.text());
                   }
                 });
  });
}

void MprisPlayers::appeared(const std::string& name) {
  if (!name.starts_with(kNamePrefix) ||
      std::ranges::find(players_, name, &Player::name) != players_.end()) {
    return;
  }
  Player& player = players_.emplace_back();
  player.name = name;
  player.watch = std::make_unique<PropertyWatch>(
      bus_, platform::linux::BusAddress{name, kPath, kPlayer},
      [this, name](const PropertyWatch::Properties& properties) { statusIs(name, properties); });
}

void MprisPlayers::vanished(const std::string& name) {
  players_.remove_if([&](const Player& player) { return player.name == name; });
}

void MprisPlayers::statusIs(const std::string& name, const PropertyWatch::Properties& properties) {
  const auto player = std::ranges::find(players_, name, &Player::name);
  if (player == players_.end()) {
    return;
  }
  const bool wasPlaying =
      std::exchange(player->isPlaying,
                    properties && platform::textForKey(*properties, "PlaybackStatus") == "Playing");
  if (player->isPlaying && !wasPlaying) {
    player->lastPlayed = ++plays_;
  }
}

void MprisPlayers::playPause() {
  const auto rank = [](const Player& player) {
    return std::tuple(player.isPlaying, player.lastPlayed);
  };
  // The first of equals.
  const auto best = std::ranges::max_element(players_, {}, rank);
  if (best == players_.end()) {
    logger_.info("There is no media player");
    return;
  }
  best->watch->service().tell(kPath, kPlayer, "PlayPause", logger_,
                              best->name + " is not controlled");
}

}  // namespace wrixel2::companion
