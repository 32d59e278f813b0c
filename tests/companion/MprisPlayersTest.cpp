#include <string>
#include <vector>

#include "companion/MprisPlayers.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::companion {
namespace {

using platform::Value;
using platform::linux::BusConnection;
using platform::linux::BusMessage;
using platform::linux::BusSlot;

class FakePlayer {
 public:
  FakePlayer(std::unique_ptr<BusConnection> bus, const std::string& name, std::string status,
             std::vector<std::string>& controlled)
      : bus_(std::move(bus)), status_(std::move(status)) {
    const auto playPause = [&controlled, name](const BusMessage& call) {
      controlled.push_back(name);
      call.reply("", {});
    };
    slot_ = std::move(*bus_->addInterface(
        kPath, {kPlayer,
                {{"PlayPause", {}, {}, playPause}},
                {{"PlaybackStatus", "s", [this] { return Value(status_); }, nullptr}},
                {}}));
    bus_->requestName("org.mpris.MediaPlayer2." + name);
  }
  void setStatus(const std::string& status) {
    status_ = status;
    sd_bus_emit_properties_changed(bus_->get(), kPath, kPlayer, "PlaybackStatus", nullptr);
    // The bus serves its connections in any order: it has this when it answers.
    EXPECT_TRUE(bus_->nameHasOwner("org.freedesktop.DBus"));
  }

 private:
  static constexpr const char* kPath = "/org/mpris/MediaPlayer2";
  static constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
  std::unique_ptr<BusConnection> bus_;
  std::string status_;
  BusSlot slot_;
};

class MprisPlayersTest : public platform::linux::BusTest {
 protected:
  std::unique_ptr<FakePlayer> player(const std::string& name, const std::string& status) {
    auto made = std::make_unique<FakePlayer>(open(), name, status, controlled);
    // The bus serves its connections in any order, and this one is new.
    while (!*own->nameHasOwner("org.mpris.MediaPlayer2." + name)) {
    }
    settle();
    return made;
  }
  std::string playPause() {
    settle();
    controlled.clear();
    players.playPause();
    settle();
    return controlled.empty() ? "nobody" : controlled.front();
  }
  /// Once what the players say has arrived, which nobody tells: the right one is controlled.
  bool controls(const std::string& player) {
    for (int attempt = 0; attempt < 100; ++attempt) {
      if (playPause() == player) {
        return true;
      }
    }
    return false;
  }

  std::vector<std::string> controlled;
  MprisPlayers players{*own, log};
};

TEST_F(MprisPlayersTest, ControlsTheOneThatPlaysElseTheLastThatDidElseTheFirst) {
  const auto film = player("film", "Stopped");
  players.setFollowing(true);
  settle();
  EXPECT_TRUE(controls("film")) << "was there before";
  auto music = player("music", "Paused");
  auto radio = player("radio", "Stopped");
  EXPECT_TRUE(controls("film")) << "the first";
  music->setStatus("Playing");
  EXPECT_TRUE(controls("music"));
  music->setStatus("Paused");
  EXPECT_TRUE(controls("music")) << "the last that played";
  radio->setStatus("Playing");
  film->setStatus("Playing");
  radio->setStatus("Playing");
  EXPECT_TRUE(controls("film")) << "of two that play, the later";
  film->setStatus("Stopped");
  EXPECT_TRUE(controls("radio"));
  radio.reset();
  EXPECT_TRUE(controls("film"));
  music.reset();
  players.setFollowing(false);
  EXPECT_TRUE(controls("nobody"));
  EXPECT_GE(log.count("INFO There is no media player"), 1U);
}

}  // namespace
}  // namespace wrixel2::companion
