#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ctl/CommandLine.h"
#include "ctl/Console.h"
#include "ctl/Json.h"
#include "ctl/Session.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/simulated/SimulatedClock.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::ctl {

/// A session that the test scripts: programs that run or not, and what follows upon a posting or
/// message, on virtual time.
struct FakeWorld {
  std::optional<platform::Dictionary> daemon;
  std::optional<platform::Dictionary> companion;
  bool hasSession = true;
  /// What was posted and told, in order: "name" or "name {json}".
  std::vector<std::string> sent;
  /// Called with each posting's or message's name.
  std::function<void(const std::string& name)> onSent = [](const std::string&) {};
  platform::TimeInterval now{};

  void after(platform::TimeInterval delay, std::function<void()> event) {
    pending.emplace(now + delay, std::move(event));
  }
  void changeStatus(const platform::Dictionary& changed) {
    for (const auto& [name, value] : changed) {
      daemon->insert_or_assign(name, value);
    }
    if (events.statusChanged) {
      events.statusChanged(changed);
    }
  }
  void postDistributed(const std::string& name, const platform::Dictionary& userInfo,
                       Peer by = Peer::daemon) const {
    if (events.distributed) {
      events.distributed(by, {name, std::nullopt, userInfo});
    }
  }

  SessionEvents events;
  std::multimap<platform::TimeInterval, std::function<void()>> pending;
};

class FakeSession final : public Session {
 public:
  explicit FakeSession(FakeWorld& world) : world_(world) {}

  platform::Result<bool> isRunning(Peer peer) override {
    return peer == Peer::daemon ? world_.daemon.has_value() : world_.companion.has_value();
  }
  platform::Result<std::optional<platform::Dictionary>> properties(Peer peer) override {
    return peer == Peer::daemon ? world_.daemon : world_.companion;
  }
  platform::ErrorOrNone tellDaemon(std::string_view message,
                                   const platform::Dictionary& userInfo) override {
    return send(std::string(message),
                userInfo.empty() ? "" : " " + jsonText(userInfo, JsonLayout::oneLine));
  }
  platform::ErrorOrNone post(std::string_view name) override { return send(std::string(name), ""); }
  platform::ErrorOrNone post(const platform::Notification& notification) override {
    return send(notification.name, "");
  }
  platform::Result<std::unique_ptr<platform::Observation>> follow(SessionEvents events) override {
    world_.events = std::move(events);
    return std::make_unique<platform::Observation>();
  }
  bool waitUntil(const std::function<bool()>& condition, platform::TimeInterval limit) override {
    const platform::TimeInterval deadline = world_.now + limit;
    while (!condition()) {
      const auto next = world_.pending.begin();
      if (next == world_.pending.end() || next->first > deadline) {
        world_.now = deadline;
        return condition();
      }
      world_.now = next->first;
      world_.pending.extract(next).mapped()();
    }
    return true;
  }
  bool serveUntilInterrupted() override {
    waitUntil([] { return false; }, std::chrono::hours(1));
    return true;
  }

 private:
  platform::ErrorOrNone send(const std::string& name, const std::string& behind) {
    world_.sent.push_back(name + behind);
    world_.onSent(name);
    return std::nullopt;
  }

  FakeWorld& world_;
};

class FakeConsole final : public Console {
 public:
  void print(std::string_view text) override { output += text; }
  void complain(std::string_view sentence) override { errors.append(sentence) += "\n"; }
  bool showsProgress() const override { return isWatched; }
  void setProgress(std::string_view line) override {
    if (!line.empty()) {
      progress.emplace_back(line);
    }
  }
  int columns() const override { return 60; }
  bool isUtf8() const override { return isWide; }
  platform::Result<std::string> readInput() override { return input; }

  std::string output;
  std::string errors;
  std::string input;
  std::vector<std::string> progress;
  bool isWatched = false;
  bool isWide = true;
};

/// The whole program but for the bus and the machine: command lines in, texts and statuses out.
class CtlTest : public testing::Test {
 protected:
  static constexpr std::int64_t kNow = 1795428000;  ///< 2026-11-23 10:00:00 +0000

  CtlTest() {
    clock.setWallClock(platform::Date(std::chrono::seconds(kNow)));
    world.daemon = platform::Dictionary{{"State", "connected"},
                                        {"Band", "c8:0f:10:aa:bb:0c"},
                                        {"Initialized", true},
                                        {"LockedTo", ""},
                                        {"Battery", 80},
                                        {"Steps", 4321},
                                        {"NextMeasurement", kNow + 1800},
                                        {"NextStepCheck", 0},
                                        {"Authentication", "accepted"},
                                        {"Problem", ""}};
    world.companion = platform::Dictionary{
        {"Apps", platform::Array{platform::Dictionary{{"id", "org.example.Chat"},
                                                      {"name", "Chat\x1b[31m"},
                                                      {"count", 3},
                                                      {"last", kNow - 60}}}},
        {"DoNotDisturb", false},
        {"Locked", true},
        {"SettingsProblem", ""}};
  }

  /// Runs the command line; what it printed is in `console`.
  ExitStatus run(std::vector<std::string> words) {
    console.output.clear();
    console.errors.clear();
    world.sent.clear();
    return runCommandLine(std::move(words),
                          {console,
                           clock,
                           zone,
                           files,
                           propertyLists,
                           {settingsFile, directory.path("MiFit"), directory.path("health.sqlite")},
                           [this]() -> platform::Result<std::unique_ptr<Session>> {
                             if (!world.hasSession) {
                               return platform::Error{0, "there is no session bus"};
                             }
                             return std::unique_ptr<Session>(std::make_unique<FakeSession>(world));
                           },
                           [this] { return host; },
                           false});
  }

  /// The same with the words between single blanks; between two blanks there is an empty one.
  ExitStatus run(const char* line) {
    std::vector<std::string> words;
    std::istringstream rest(line);
    for (std::string word; std::getline(rest, word, ' ');) {
      words.push_back(word);
    }
    return run(std::move(words));
  }
  /// What it printed; of one that did not do what it is to do, what it complained of.
  template <typename Words>
  std::string outputOf(const Words& words) {
    const ExitStatus status = run(words);
    EXPECT_EQ(status, ExitStatus::done);
    return status == ExitStatus::done ? console.output : console.errors;
  }
  void expectFailure(const char* line, ExitStatus status, std::string_view complaint) {
    EXPECT_EQ(run(line), status) << line;
    expectPart(console.errors, complaint);
  }
  static void expectPart(const std::string& text, std::string_view part) {
    EXPECT_NE(text.find(part), std::string::npos) << "no \"" << part << "\" in:\n" << text;
  }

  void writeSettings(std::string_view text) const {
    static_cast<void>(directory.write("settings.toml", text));
  }
  std::string settingsText() const {
    const auto contents = files.contentsAtPath(settingsFile);
    return contents ? std::string(contents->begin(), contents->end()) : "";
  }

  platform::linux::TemporaryDirectory directory;
  std::string settingsFile = directory.path("settings.toml");
  platform::simulated::SimulatedClock clock;
  platform::FixedTimeZone zone{3600};
  platform::linux::LinuxFileManager files;
  platform::linux::LinuxPropertyLists propertyLists{files};
  FakeConsole console;
  FakeWorld world;
  HostFacts host;
};

}  // namespace wrixel2::ctl
