#pragma once

#include <cstddef>
#include <memory>

#include "companion/ButtonPresses.h"
#include "platform/Log.h"
#include "platform/RunLoop.h"
#include "settings/Settings.h"

namespace wrixel2::companion {

class CallControl;
class CommandRunner;
class MediaControl;

/// Does what the owner has set for one, two and three presses of the band's button.
class ButtonActions final : public ButtonPresses {
 public:
  /// All outlive it.
  ButtonActions(platform::RunLoop& loop, platform::Log& log, CommandRunner& commands,
                MediaControl& media, CallControl& calls)
      : loop_(loop),
        logger_(log, "ButtonActions"),
        commands_(commands),
        media_(media),
        calls_(calls) {}

  /// Presses that are being counted are taken by the new settings.
  void setSettings(const settings::CompanionSettings& settings);

  /// Acts when no further press has followed within the window; at once where there is nothing to
  /// count.
  void buttonPressed() override;

 private:
  bool isCounting() const;
  void actOnPresses();
  void act(const settings::ButtonAction& action, std::size_t presses);

  platform::RunLoop& loop_;
  platform::Logger logger_;
  CommandRunner& commands_;
  MediaControl& media_;
  CallControl& calls_;
  settings::CompanionSettings settings_;
  std::size_t presses_ = 0;
  std::unique_ptr<platform::Timer> window_;
};

}  // namespace wrixel2::companion
