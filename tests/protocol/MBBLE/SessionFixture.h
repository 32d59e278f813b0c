#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "band/BandObserver.h"
#include "band/VirtualBand.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::mbble {

class FakeKeyProvider final : public mbservices::KeyProvider {
 public:
  std::string getMiFitAuthId() override {
    if (onRequest) {
      onRequest();
    }
    return key;
  }
  std::string key{band::kDefaultPairingKey};
  std::function<void()> onRequest;
};

/// A session manager and a virtual band in range, on a radio that takes no time, so that the only
/// times seen are the session's own.
class SessionFixture : public testing::Test, private band::BandObserver {
 protected:
  SessionFixture();
  ~SessionFixture() override;

  using Milliseconds = std::chrono::milliseconds;
  using Seconds = std::chrono::seconds;

  /// Another band in range.
  std::shared_ptr<band::VirtualBand> addBand(std::string_view address,
                                             std::string_view name = band::kBandName);
  /// Makes the manager; nothing has happened yet.
  void makeManager();
  /// Makes the manager and runs until the band is set up and everything of that is over. The
  /// records begin anew.
  void connectBand();
  /// Lets the band go; the records begin anew.
  void disconnectBand();
  void runFor(platform::TimeInterval time) { phone.runLoop.runFor(time); }
  /// Until nothing more happens without time passing.
  void settle() { phone.runLoop.runUntilIdle(); }
  void forgetRecords();

  /// The first band known to the session.
  std::shared_ptr<MBPeripheral> peripheral() const { return manager->bands().front(); }
  static std::shared_ptr<mbmodel::MBVibrateModel> alert(
      std::uint64_t repeat, std::uint64_t icon, std::uint64_t pattern = 0,
      std::optional<std::string> text = std::nullopt);

  /// What reached the band since the records began: "150 2a06 ff4b00dc0503", the milliseconds, the
  /// characteristic and the value; with " ack" for an acknowledged write.
  const std::vector<std::string>& writes() const { return writes_; }
  /// The same without the times, of one characteristic.
  std::vector<std::string> writesTo(std::string_view characteristic) const;
  std::vector<std::string> warnings() const {
    return phone.log.messages(platform::LogLevel::warning);
  }
  bool hasLog(platform::LogLevel level, std::string_view text) const {
    return phone.log.contains(level, text);
  }
  std::size_t countOfLog(platform::LogLevel level, std::string_view message) const {
    return phone.log.count(level, message);
  }
  /// A number, truth or text as text.
  static std::string shown(const platform::Value& value);
  /// The values under the key in the postings of that name.
  std::vector<std::string> posted(std::string_view name, std::string_view key) const;
  /// Seconds of the disconnect watchdogs that run; normally one or none.
  std::vector<long> watchdogs() const;

  platform::simulated::SimulatedPlatform phone;
  MBHealthKitManager healthKit{phone.healthStore, phone.systemInfo, phone.clock, phone.log};
  FakeKeyProvider keys;
  std::shared_ptr<band::VirtualBand> band;
  std::shared_ptr<MBCentralManager> manager;

 private:
  void bandDidReceiveWrite(const platform::UUID& service, const platform::UUID& characteristic,
                           platform::ByteView value, platform::WriteType type) override;

  platform::MonotonicTime recordsBegan_;
  std::vector<std::string> writes_;
};

}  // namespace wrixel2::mbble
