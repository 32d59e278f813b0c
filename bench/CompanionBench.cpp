#include "bench/CompanionBench.h"

#include <algorithm>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "bench/AwakeProcessors.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::bench {
namespace {

using platform::Array;
using platform::Dictionary;
using std::chrono::steady_clock;

/// So many are on their way at a time.
constexpr std::size_t kBurst = 100;

}  // namespace

CompanionBench::CompanionBench(platform::linux::LinuxRunLoop& loop, platform::Log& log,
                               const Programs& programs, const Extent& extent, Report& report)
    : log_(log),
      extent_(extent),
      report_(report),
      session_(loop, log),
      centers_(session_.bus(), log_),
      daemonCenter_(centers_.centerNamed(kDaemonCenter)) {
  const auto ignore = [](std::string_view, const Dictionary&) {};
  daemonCenter_->registerForMessageName(
      "bulletinRequest", [this](std::string_view, const Dictionary&) { ++bulletins_; });
  daemonCenter_->registerForMessageName("DND", ignore);
  daemonCenter_->registerForMessageName("letUsStart", ignore);
  auto service =
      platform::linux::serveNotifications(session_.bus(), [](const Array&) { return 1; });
  if (daemonCenter_->runServer() || !service) {
    giveUp("a daemon and a notification service cannot be played");
  }
  notificationService_ = std::move(*service);
  companion_ =
      session_.start({programs.companion, "--log", "stderr"}, std::string(kCompanionCenter));
}

void CompanionBench::notify(std::size_t number) {
  auto call = session_.bus().newMethodCall(
      platform::linux::kNotificationService, "Notify", "susssasa{sv}i",
      {fmt::format("App{}", number % 20), 0, "", "Anna Example",
       fmt::format("See you at <b>six</b>, at the usual place &amp; time ({})", number), Array(),
       Dictionary{{"desktop-entry", fmt::format("org.example.App{}", number % 20)}}, -1});
  if (!call) {
    giveUp(call.error().localizedDescription);
  }
  call->setExpectsReply(false);
  if (const auto error = session_.bus().send(*call)) {
    giveUp(error->localizedDescription);
  }
}

void CompanionBench::measureNotifications() {
  const AwakeProcessors awake;
  const auto processorTime = companion_->processorTime();
  const auto begin = steady_clock::now();
  for (std::size_t sent = 0; sent < extent_.notifications;) {
    const std::size_t end = std::min(sent + kBurst, extent_.notifications);
    for (; sent < end; ++sent) {
      notify(sent);
    }
    session_.waitUntil("the bulletins", [this, sent] { return bulletins_ >= sent; });
  }
  const std::chrono::duration<double> time = steady_clock::now() - begin;
  const std::chrono::duration<double, std::micro> cost =
      companion_->processorTime() - processorTime;
  const auto count = static_cast<double>(extent_.notifications);
  report_.add({"companion", "notifications passed on", "1/s", count / time.count(), std::nullopt,
               std::nullopt});
  report_.add({"companion", "processor time of one", "us", cost.count() / count, std::nullopt,
               std::nullopt});
}

void CompanionBench::measureHeartRates() {
  const auto begin = steady_clock::now();
  for (std::size_t count = 0; count < extent_.heartRates; ++count) {
    const auto request = session_.bus().newMethodCall(
        centerAddress(kCompanionCenter), "writeHeartRate", "a{sv}",
        {Dictionary{{"heartRate", 60 + static_cast<int>(count % 40)}}});
    const auto reply = session_.bus().call(*request);
    if (!reply) {
      giveUp(reply.error().localizedDescription);
    }
  }
  const std::chrono::duration<double> time = steady_clock::now() - begin;
  report_.add({"companion", "heart rates acknowledged and durable", "1/s",
               static_cast<double>(extent_.heartRates) / time.count(), std::nullopt, std::nullopt});
}

}  // namespace wrixel2::bench
