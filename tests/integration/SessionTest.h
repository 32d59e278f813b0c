#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Program.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/SdBus.h"
#include "platform/simulated/RecordingLog.h"
#include "tests/platform/linux/PrivateBus.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::integration {

using platform::Array;
using platform::Bytes;
using platform::Dictionary;
using platform::linux::BusConnection;
using platform::linux::BusMessage;

/// The keys that the virtual band expects at first, and that the daemon falls back on.
inline constexpr const char* kBandsKey = "0123456789abcdef0123456789abcdef";
inline constexpr const char* kFallbackKey = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";

inline constexpr const char* kDaemonName = "org.corvale.wrixel2dIpc";
inline constexpr const char* kCompanionName = "org.corvale.wrixel2Ipc";
inline const platform::linux::BusAddress kStatus{kDaemonName, "/org/corvale/wrixel2dIpc",
                                                 "org.corvale.wrixel2d.Status"};
inline const platform::linux::BusAddress kBand{"org.corvale.wrixel2.VirtualBand",
                                               "/org/corvale/wrixel2/VirtualBand",
                                               "org.corvale.wrixel2.VirtualBand"};

/// What the band did, as it told the bus.
struct BandEvent {
  std::string kind;  ///< "Displayed", "Vibrated" or "Written"
  Array arguments;
};

/// A session of its own: a message bus, fresh XDG directories, and the real programs on them.
///
/// Waiting is for something to happen, never for time to pass: the loop sleeps until the bus or a
/// program has something to say.
class SessionTest : public testing::Test {
 protected:
  static constexpr platform::TimeInterval kLimit = std::chrono::seconds(20);

  SessionTest();

  void SetUp() override;
  /// Ends the programs, which have to end cleanly whatever they are at.
  void TearDown() override;

  // --- files ---
  void writeSettings(const std::string& text) const;
  void writePairingKey(const std::string& key) const;

  // --- programs ---
  std::unique_ptr<Program> start(const std::vector<std::string>& arguments);
  /// Returns once its name is on the bus.
  void startDaemon();
  void startCompanion();
  /// Both, and returns once the radio is on.
  void startBoth();
  /// Until the daemon has the settings and a radio.
  void waitUntilServed();
  /// Until the daemon's first connection stands. An alert is shown at once from then on; before,
  /// the last one of several is.
  void waitForBand();
  /// As a crash does, and returns once its name is free.
  void kill(std::unique_ptr<Program>& program, const std::string& name);

  // --- on the bus ---
  /// From now on, to the test's end.
  void match(const std::string& rule, BusConnection::Callback received) const;
  /// The test is the desktop that shows alerts.
  void serveAlerts();
  bool hasOwner(const std::string& name) const;
  /// A message to the daemon, as the companion would send it.
  void tell(const std::string& message, const Dictionary& userInfo = {}) const;
  void bulletin(const std::string& app, const std::string& title, const std::string& message) const;
  /// A posting to the daemon's notify center, or with three arguments to the distributed one.
  static platform::Result<BusMessage> callPost(const BusConnection& from,
                                               const std::string& signature,
                                               const Array& arguments);
  void post(const std::string& name) const;
  /// As an app does.
  void notify(const std::string& app, const std::string& summary, const std::string& body,
              const Dictionary& hints = {}) const;
  void callBand(const std::string& method, const std::string& signature = {},
                const Array& arguments = {}) const;
  void setBandProperty(const std::string& name, const std::string& signature,
                       const platform::Value& value) const;

  // --- what happened ---
  /// Fails the test, saying what did not happen, after the time limit.
  void waitUntil(const std::string& what, const std::function<bool()>& condition,
                 platform::TimeInterval limit = kLimit);
  void waitForExit(Program& program, int status, platform::TimeInterval limit = kLimit);
  void waitForText(const std::string& text);
  /// Until somebody has posted the name, since the last call for it. What the test sends then
  /// reaches the daemon after the posting.
  void waitForPosting(const std::string& name);
  /// The texts that the band has shown, in order, since the test began.
  std::vector<std::string> shownTexts() const;
  bool hasShown(const Bytes& icon) const;
  bool has(const std::string& kind) const;
  /// Whether the motor was told to rest.
  bool isStopped() const;

  platform::linux::TemporaryDirectory temporary_;
  const std::filesystem::path directory_ = temporary_.path();
  platform::linux::PrivateBus privateBus_;
  platform::simulated::RecordingLog log_;
  platform::linux::LocalTimeZone zone_;
  platform::linux::LinuxRunLoop loop_{log_, zone_};
  Program::Environment environment_;
  std::unique_ptr<BusConnection> bus_;
  std::vector<BandEvent> events_;
  std::vector<std::string> postings_;
  std::vector<std::string> alerts_;  ///< "title: message"
  std::unique_ptr<Program> daemon_;
  std::unique_ptr<Program> companion_;
};

}  // namespace wrixel2::integration
