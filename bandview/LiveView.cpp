#include "bandview/LiveView.h"

#include <cstdlib>
#include <ctime>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "bandview/AlertIcon.h"
#include "bandview/Screen.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandview {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostEvents = 200;
constexpr platform::TimeInterval kShakeInterval = 50ms;
constexpr platform::TimeInterval kClockInterval = 1min;

std::vector<std::string> hintsForBus() {
  std::vector<std::string> hints{"Send one from another terminal (q ends this):"};
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS")) {
    std::string bus(address);
    bus = bus.substr(0, bus.find(",guid="));
    hints.push_back(fmt::format("  export DBUS_SESSION_BUS_ADDRESS={}", bus));
  }
  hints.emplace_back("  notify-send 'Anna' 'See you at six'");
  return hints;
}

std::string localTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  return fmt::format("{:%H:%M:%S}", parts);
}

}  // namespace

LiveView::LiveView(platform::linux::LinuxRunLoop& loop, const platform::Clock& clock,
                   platform::linux::BusConnection& bus)
    : loop_(loop), clock_(clock), bus_(bus) {
  view_.hints = hintsForBus();
}

platform::ErrorOrNone LiveView::start() {
  auto terminal = Terminal::takeOver(loop_, {[this] { redrawSoon(); },
                                             [this](char key) {
                                               if (key == 'q') {
                                                 loop_.stop(0);
                                               }
                                             }});
  if (!terminal) {
    return terminal.error();
  }
  terminal_ = std::move(*terminal);

  auto notifications =
      NotificationServer::start(bus_, [this](const NotificationServer::Notification& notification) {
        addEvent(fmt::format("{} notifies: {}: {}", notification.app, notification.title,
                             notification.body));
      });
  if (notifications) {
    notifications_ = std::move(*notifications);
  } else {
    addEvent("Another program shows notifications here; alerts appear there.");
  }

  auto band = BandClient::start(
      bus_,
      {[this] { redrawSoon(); }, [this](const Displayed& displayed) { showDisplayed(displayed); },
       [this](unsigned on, unsigned off, unsigned count) { vibrate(on, off, count); }, [] {}});
  if (!band) {
    return band.error();
  }
  band_ = std::move(*band);
  clockTimer_ = loop_.scheduledTimer(kClockInterval, true, [this] { band_->refresh(); });
  redrawSoon();
  return std::nullopt;
}

void LiveView::addEvent(std::string_view event) {
  if (view_.events.size() == kMostEvents) {
    view_.events.erase(view_.events.begin());
  }
  view_.events.push_back(fmt::format("{}  {}", localTime(), event));
  redrawSoon();
}

void LiveView::showDisplayed(const Displayed& displayed) {
  view_.displayed = displayed;
  const AlertIcon icon = alertIcon(displayed.icon);
  addEvent(displayed.text.empty()
               ? fmt::format("band shows  {} {}", icon.glyph, icon.name)
               : fmt::format("band shows  {} {}: {}", icon.glyph, icon.name, displayed.text));
}

void LiveView::vibrate(unsigned on, unsigned off, unsigned count) {
  vibration_ = {std::chrono::milliseconds(on), std::chrono::milliseconds(off), count,
                clock_.monotonicNow()};
  if (vibration_.isOver(vibration_.start)) {
    addEvent("band stops vibrating");
  } else {
    view_.vibration = fmt::format("{} × {} ms, {} ms off", count, on, off);
    addEvent("band vibrates  " + view_.vibration);
  }
  shake();
}

void LiveView::shake() {
  const platform::MonotonicTime now = clock_.monotonicNow();
  view_.isVibrating = vibration_.isOn(now);
  view_.leansRight = !view_.leansRight;
  if (vibration_.isOver(now)) {
    view_.vibration.clear();
    shakeTimer_.reset();
  } else if (!shakeTimer_) {
    shakeTimer_ = loop_.scheduledTimer(kShakeInterval, true, [this] { shake(); });
  }
  redrawSoon();
}

void LiveView::redrawSoon() {
  if (!std::exchange(redrawPending_, true)) {
    loop_.post([this] { draw(); });
  }
}

void LiveView::draw() {
  redrawPending_ = false;
  view_.band = band_ ? band_->state() : std::nullopt;
  terminal_->show(drawScreen(view_, terminal_->size()));
}

}  // namespace wrixel2::bandview
