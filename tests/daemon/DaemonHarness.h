#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/Wrixel2d.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MiBand.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::daemon {

/// What the user was told, as "title|message".
using UserAlerts = std::vector<std::string>;

/// The shell companion: answers with the settings and the app's directory as they are now.
class FakeCompanion {
 public:
  explicit FakeCompanion(platform::MessageCenters& centers)
      : center_(centers.centerNamed("org.corvale.wrixel2Ipc")) {
    EXPECT_FALSE(center_->runServer());
    answer("getPrefsDict", settings);
    answer("appInfo", appInfo);
  }

  platform::Dictionary settings;
  platform::Dictionary appInfo{{"MiFitBasePath", "/MiFit"}};

 private:
  void answer(std::string_view request, const platform::Dictionary& reply) {
    center_->registerForMessageNameWithReply(
        request,
        [&reply](std::string_view, const platform::Dictionary&)
            -> platform::Result<platform::Dictionary> { return reply; });
  }

  std::unique_ptr<platform::MessageCenter> center_;
};

class FixedKeyProvider final : public mbservices::KeyProvider {
 public:
  std::string getMiFitAuthId() override { return key; }
  std::string key = "0123456789abcdef0123456789abcdef";
};

/// A controller on a platform of virtual time, with a session manager of its own.
class DaemonHarness : public testing::Test {
 protected:
  void TearDown() override { end(); }

  void end() {
    wrixel2d.reset();
    manager.reset();
    // What they left queued holds them weakly, but goes before the platform all the same.
    run();
  }

  /// In place of the one before, if any.
  void start() {
    end();
    bandsMade = 0;
    auto made = Wrixel2d::create(platform(), bandFactory());
    ASSERT_TRUE(made) << made.error().localizedDescription;
    wrixel2d = *made;
  }

  /// The controller, with the band service up and the alerts and messages of that forgotten.
  void startService(platform::Dictionary settings = {}) {
    companion->settings = std::move(settings);
    start();
    send("letUsStart");
    run();
    if (wrixel2d->state().band) {
      lastModel_ = wrixel2d->state().band->mode();
    }
    forget();
  }

  Wrixel2d::MiBandFactory bandFactory() {
    return [this] {
      ++bandsMade;
      manager = mbble::MBCentralManager::create(platform(), keyProvider, healthKit, {});
      return std::make_unique<mbble::MiBand>(platform(), manager);
    };
  }

  const platform::Platform& platform() const { return system.handle(); }

  void send(std::string_view message, const platform::Dictionary& userInfo = {}) {
    system.messageCenters.centerNamed("org.corvale.wrixel2dIpc")
        ->sendMessageName(message, userInfo);
  }
  void bulletin(const platform::Dictionary& userInfo) {
    send("bulletinRequest", userInfo);
    run();
  }
  void setQuiet(bool isOn) {
    send("DND", {{"DNDEnabled", isOn}});
    run();
  }
  void post(std::string_view name) { system.darwinNotifyCenter.postFromOutside(name); }
  void postPreference(std::string_view suffix = "") {
    post(std::string("org.corvale.wrixel2prefs.preferencechanged").append(suffix));
  }
  void set(std::string_view key, platform::Value value) {
    companion->settings.insert_or_assign(std::string(key), std::move(value));
  }
  void change(std::string_view key, platform::Value value, std::string_view suffix) {
    set(key, std::move(value));
    postPreference(suffix);
    run();
  }
  void postResult(std::string_view suffix, const platform::Dictionary& userInfo) {
    system.distributedNotificationCenter.postFromOutside(
        {std::string("org.corvale.wrixel2.").append(suffix), {}, userInfo});
    run();
  }
  platform::Value property(std::string_view name) const {
    return system.objectExporter.property("/org/corvale/wrixel2dIpc", name).value();
  }
  std::size_t timers(std::string_view identifier) const {
    return system.runLoop.persistentTimers(identifier).size();
  }
  void run() { system.runLoop.runUntilIdle(); }
  void forget() {
    system.log.clear();
    system.messageCenters.clearSentMessages();
  }

  UserAlerts userAlerts() const {
    UserAlerts alerts;
    for (const auto& message : system.messageCenters.sentMessages("alertUser")) {
      EXPECT_EQ(message.userInfo.size(), 2U);
      alerts.push_back(textForKey(message.userInfo, "title").value_or("?") + "|" +
                       textForKey(message.userInfo, "message").value_or("?"));
    }
    return alerts;
  }
  /// The daemon's own lines; those of the core as they are, others as "File: message".
  std::vector<std::string> lines(platform::LogLevel level) const {
    std::vector<std::string> messages;
    for (const auto& line : system.log.lines()) {
      if (line.level != level) {
        continue;
      }
      if (line.module == "main") {
        messages.push_back(line.message);
      } else if (line.module == "Wrixel2d" || line.module == "ShellCompanion" ||
                 line.module == "CheckedDictionary" || line.module == "StatusObject") {
        messages.push_back(line.module + ": " + line.message);
      }
    }
    return messages;
  }
  /// How often the band was asked for this in its front object's terms.
  std::size_t requests(std::string_view line) const {
    return system.log.count(platform::LogLevel::info, line);
  }
  std::size_t heartRequests(int mode) const {
    return requests("Request for Heart Rate measurement with mode " + std::to_string(mode) +
                    " ...");
  }
  std::size_t stepRequests() const { return requests("Request for Step measurement ..."); }

  /// The last alert given to the band since the last call, as repeat, icon, pattern and text.
  std::optional<BandAlert> newBandAlert() {
    const auto model = wrixel2d->state().band->mode();
    if (model == lastModel_) {
      return std::nullopt;
    }
    lastModel_ = model;
    return BandAlert{model->repeat(), model->iconId(), model->pattern(), model->text()};
  }

  platform::simulated::SimulatedPlatform system;
  FixedKeyProvider keyProvider;
  mbble::MBHealthKitManager healthKit{system.healthStore, system.systemInfo, system.clock,
                                      system.log};
  std::optional<FakeCompanion> companion{std::in_place, system.messageCenters};
  std::shared_ptr<mbble::MBCentralManager> manager;
  int bandsMade = 0;
  std::shared_ptr<Wrixel2d> wrixel2d;

 private:
  std::shared_ptr<mbmodel::MBVibrateModel> lastModel_;
};

}  // namespace wrixel2::daemon
