#include "bandview/OnceView.h"

#include <cstdio>

#include <fmt/format.h>

#include "bandview/TerminalText.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandview {

namespace {

/// Under which the companion shows what the daemon has to say.
constexpr std::string_view kCompanionApp = "wrixel2";

}  // namespace

platform::ErrorOrNone OnceView::start() {
  band_ = std::make_unique<BandClient>(
      bus_, BandEvents{[] {},
                       [this](const Displayed& displayed) {
                         note(Stage::icon);
                         if (!displayed.text.empty()) {
                           note(Stage::text);
                         }
                       },
                       [this](unsigned, unsigned, unsigned count) {
                         if (count > 0) {
                           note(Stage::vibration);
                         }
                       },
                       [this](std::string_view, platform::ByteView) { note(Stage::write); }});
  limit_ = loop_.scheduledTimer(kLimit, false, [this] { timeIsOver(); });
  auto notifications = NotificationServer::start(
      bus_,
      [this](const NotificationServer::Notification& notification) { notified(notification); });
  if (!notifications) {
    return notifications.error();
  }
  notifications_ = std::move(*notifications);
  return std::nullopt;
}

void OnceView::notified(const NotificationServer::Notification& notification) {
  if (notification.app == kCompanionApp) {
    std::fprintf(stderr, "wrixel2-bandview: the daemon says: %s: %s\n",
                 printable(notification.title).c_str(), printable(notification.body).c_str());
    return;
  }
  note(Stage::message);
}

void OnceView::note(Stage stage) {
  timeline_.note(stage, clock_.monotonicNow());
  if (timeline_.isComplete() && limit_) {
    limit_.reset();
    std::fputs(timeline_.report().c_str(), stdout);
    loop_.stop(0);
  }
}

void OnceView::timeIsOver() {
  std::fputs(timeline_.report().c_str(), stdout);
  std::fputs(fmt::format("wrixel2-bandview: within {} s there was no {}{}\n",
                         std::chrono::duration_cast<std::chrono::seconds>(kLimit).count(),
                         timeline_.missing().value_or("end"),
                         band_->state() ? "" : " (there is no virtual band on the bus)")
                 .c_str(),
             stderr);
  loop_.stop(1);
}

}  // namespace wrixel2::bandview
