#include "companion/MprisPlayers.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Value;
using platform::linux::BusMessage;

constexpr std::string_view kNamePrefix = "org.mpris.MediaPlayer2.";
constexpr const char* kPath = "/org/mpris/MediaPlayer2";
constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
constexpr const char* kDriver = "org.freedesktop.DBus";

}  // namespace

void MprisPlayers::setFollowing(bool isFollowing) {
  if (isFollowing == static_cast<bool>(ownerChanges_)) {
    return;
  }
  ownerChanges_.reset();
  pendingNames_.reset();
  players_.clear();
  if (!isFollowing) {
    return;
  }
  auto match = bus_.addMatch(
      fmt::format("type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',"
                  "arg0namespace='org.mpris.MediaPlayer2'",
                  kDriver),
      [this](const BusMessage& message) {
        const auto arguments = message.arguments();
        if (!arguments || message.signature() != "sss") {
          return;
        }
        const std::string& name = *(*arguments)[0].text();
        if ((*arguments)[2].text()->empty()) {
          vanished(name);
        } else {
          appeared(name);
        }
      });
  if (match) {
    ownerChanges_ = std::move(*match);
  }
  askForNames();
}

void MprisPlayers::askForNames() {
  const auto request = bus_.newMethodCall({kDriver, "/org/freedesktop/DBus", kDriver}, "ListNames");
  if (!request) {
    return;
  }
  auto pending = bus_.callAsync(*request, [this](const BusMessage& reply) {
    const auto arguments = reply.arguments();
    if (reply.isError() || !arguments || reply.signature() != "as") {
      return;
    }
    for (const Value& name : *arguments->front().array()) {
      appeared(*name.text());
    }
  });
  if (pending) {
    pendingNames_ = std::move(*pending);
  }
}

void MprisPlayers::appeared(const std::string& name) {
  if (!name.starts_with(kNamePrefix) ||
      std::ranges::find(players_, name, &Player::name) != players_.end()) {
    return;
  }
  Player& player = players_.emplace_back();
  player.name = name;
  player.watch = PropertyWatch::start(
      bus_, {name, kPath, kPlayer},
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
  auto request = bus_.newMethodCall({best->name, kPath, kPlayer}, "PlayPause");
  if (!request) {
    return;
  }
  request->setAutoStart(false);
  auto pending =
      bus_.callAsync(*request, [logger = logger_, name = best->name](const BusMessage& reply) {
        if (reply.isError()) {
          logger.warning(fmt::format("{} is not controlled: {}", name, description(reply.error())));
        }
      });
  if (pending) {
    pending->detach();
  }
}

}  // namespace wrixel2::companion
