// Everything that other programs send to the daemon, with user infos of any shape, while time
// passes and the settings change.

#include "band/VirtualBand.h"
#include "daemon/Wrixel2d.h"
#include "fuzz/Check.h"
#include "fuzz/Drive.h"
#include "fuzz/Input.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MiBand.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::fuzz {
namespace {

using platform::Dictionary;

constexpr std::string_view kSecret = "only for the owner's eyes";

class FixedKey final : public mbservices::KeyProvider {
  std::string getMiFitAuthId() override { return std::string(band::kDefaultPairingKey); }
};

class Phone {
 public:
  /// The whole input, to know what it says itself.
  explicit Phone(std::string_view input)
      : saysSecret_(input.find(kSecret) != std::string_view::npos ||
                    input.find(band::kDefaultPairingKey) != std::string_view::npos) {
    band_ = std::make_shared<band::VirtualBand>(system_.handle());
    system_.radio.addBand(band_);
    check(!companion_->runServer(), "the companion has its name");
    companion_->registerForMessageNameWithReply(
        "getPrefsDict",
        [this](std::string_view, const Dictionary&) -> platform::Result<Dictionary> {
          return settings_;
        });
    companion_->registerForMessageNameWithReply(
        "appInfo", [this](std::string_view, const Dictionary&) -> platform::Result<Dictionary> {
          return appInfo_;
        });
    auto made = daemon::Wrixel2d::create(system_.handle(), [this] {
      manager_ = mbble::MBCentralManager::create(system_.handle(), key_, healthKit_, {});
      return std::make_unique<mbble::MiBand>(system_.handle(), manager_);
    });
    check(static_cast<bool>(made), "the daemon starts");
    daemon_ = *made;
  }
  Phone(const Phone&) = delete;
  Phone& operator=(const Phone&) = delete;
  ~Phone() {
    daemon_.reset();
    manager_.reset();
    system_.runLoop.runUntilIdle();
  }

  void happen(Input& input) {
    switch (input.below(8)) {
      case 0:
      case 1:
        send(input);
        break;
      case 2:
        post(input);
        break;
      case 3:
        postResult(input);
        break;
      case 4:
        changeSettings(input);
        break;
      case 5:
        system_.runLoop.runFor(input.pause());
        break;
      case 6:
        happenOutside(input);
        break;
      default:
        system_.runLoop.runUntilIdle();
        break;
    }
    checkAlways();
  }

  /// Whatever has happened, good settings and a notification reach the front object.
  void recover() {
    system_.messageCenters.setHanging("org.corvale.wrixel2Ipc", false);
    settings_ = {{"enabled", true}, {"MBIcon-an.app", 5}, {"MBRepeat-an.app", 2}};
    system_.darwinNotifyCenter.postFromOutside("org.corvale.wrixel2prefs.preferencechanged");
    system_.messageCenters.centerNamed("org.corvale.wrixel2dIpc")->sendMessageName("DND", {});
    system_.runLoop.runUntilIdle();
    check(daemon_->state().band != nullptr, "the band service is up");
    system_.messageCenters.centerNamed("org.corvale.wrixel2dIpc")
        ->sendMessageName("bulletinRequest",
                          {{"sectionID", "an.app"}, {"message", std::string(kSecret)}});
    system_.runLoop.runUntilIdle();
    const auto mode = daemon_->state().band->mode();
    check(mode->iconId() == 5 || mode->iconId() == 1, "the app's notification reaches the band");
    check(mode->repeat() == 3, "with the app's repeat");
    checkAlways();
  }

 private:
  void send(Input& input) {
    constexpr std::string_view kMessages[] = {"bulletinRequest", "stopVibration", "DND",
                                              "appChanged",      "phoneCall",     "letUsStart"};
    constexpr std::string_view kEntries[] = {"sectionID", "title",      "message",
                                             "sender",    "newCall",    "text",
                                             "appInfo",   "DNDEnabled", "callHanged"};
    auto userInfo = input.dictionary(kEntries, 2);
    if (input.flag()) {
      userInfo.insert_or_assign("sectionID", input.flag() ? "an.app" : "com.apple.mobiletimer");
      userInfo.insert_or_assign("message", std::string(kSecret));
    }
    system_.messageCenters.centerNamed("org.corvale.wrixel2dIpc")
        ->sendMessageName(input.oneOf(kMessages), userInfo);
  }
  void post(Input& input) {
    constexpr std::string_view kNames[] = {
        "org.corvale.wrixel2prefs.preferencechanged",
        "org.corvale.wrixel2prefs.preferencechanged/hk",
        "org.corvale.wrixel2prefs.preferencechanged/measure",
        "org.corvale.wrixel2prefs.preferencechanged/hkInterval",
        "org.corvale.wrixel2prefs.preferencechanged/move",
        "org.corvale.wrixel2prefs.preferencechanged/continuous",
        "org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged",
        "com.apple.springboard.lockcomplete",
        "com.apple.springboard.lockstate",
        "org.corvale.wrixel2.lockToCurrentBand",
        "org.corvale.wrixel2.removeLock"};
    system_.darwinNotifyCenter.postFromOutside(input.oneOf(kNames));
  }
  void postResult(Input& input) {
    constexpr std::string_view kNames[] = {
        "org.corvale.wrixel2.measure", "org.corvale.wrixel2.steps", "org.corvale.wrixel2.stopwatch",
        "org.corvale.wrixel2.capReq", "org.corvale.wrixel2.devUnlocked"};
    constexpr std::string_view kEntries[] = {"heartRate", "steps", "timeDifference"};
    const auto name = input.oneOf(kNames);
    system_.distributedNotificationCenter.postFromOutside(
        {std::string(name), std::nullopt, input.dictionary(kEntries, 2)});
  }
  void changeSettings(Input& input) {
    constexpr std::string_view kKeys[] = {
        "enabled",         "donotdisturb",     "donotannoy",      "alarmSwitch", "vibrateHrMeasure",
        "onlyLocked",      "connectedMode",    "continuousHr",    "mode",        "stopwatchSwitch",
        "timeout",         "hrInterval",       "moveEnabled",     "sensitivity", "onlyWeekdays",
        "stepRepeat",      "remindPeriod",     "startSteps",      "endSteps",    "MBIcon-an.app",
        "MBRepeat-an.app", "MBPattern-an.app", "MBPreview-an.app"};
    settings_ = input.dictionary(kKeys, 2);
    appInfo_ = input.dictionary({}, 1);
  }
  void happenOutside(Input& input) {
    switch (input.below(6)) {
      case 0:
        system_.messageCenters.setHanging("org.corvale.wrixel2Ipc", input.flag());
        break;
      case 1:
        system_.timeZone.setSecondsFromGMT((static_cast<int>(input.below(53)) - 24) * 1800);
        break;
      case 2:
        system_.clock.setWallClock(
            platform::Date(std::chrono::seconds(input.integer() % 8'000'000'000)));
        break;
      case 3:
        band_->setIsInRange(input.flag());
        break;
      case 4:
        system_.runLoop.sleepFor(input.pause());
        break;
      default:
        system_.radio.setState(input.flag() ? platform::CentralState::poweredOn
                                            : platform::CentralState::poweredOff);
        break;
    }
  }
  void checkAlways() {
    for (const auto& line : system_.log.lines()) {
      // Identifiers of apps are logged, and the fuzzer puts anything there.
      check(saysSecret_ || line.text.find(kSecret) == std::string::npos,
            "no message text in the log");
      check(saysSecret_ || line.text.find(band::kDefaultPairingKey) == std::string::npos,
            "no key in the log");
    }
    system_.log.clear();
    check(system_.runLoop.persistentTimers().size() <= 8, "each chain has one timer");
    if (const auto& front = daemon_->state().band) {
      check(front->mode()->iconId() != 0, "an alert without an icon goes nowhere");
    }
    system_.messageCenters.clearSentMessages();
    system_.distributedNotificationCenter.clearPostings();
  }

  bool saysSecret_;
  platform::simulated::SimulatedPlatform system_;
  std::unique_ptr<platform::MessageCenter> companion_ =
      system_.messageCenters.centerNamed("org.corvale.wrixel2Ipc");
  Dictionary settings_;
  Dictionary appInfo_;
  FixedKey key_;
  mbble::MBHealthKitManager healthKit_{system_.healthStore, system_.systemInfo, system_.clock,
                                       system_.log};
  std::shared_ptr<band::VirtualBand> band_;
  std::shared_ptr<mbble::MBCentralManager> manager_;
  std::shared_ptr<daemon::Wrixel2d> daemon_;
};

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  Phone phone(input.restAsText());
  drive(phone, input, 40);
  return 0;
}
