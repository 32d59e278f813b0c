#include "bandview/LiveView.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <fmt/format.h>

#include "bandview/AlertIcon.h"
#include "bandview/Screen.h"
#include "platform/UUID.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandview {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostEvents = 200;
constexpr platform::TimeInterval kShakeInterval = 50ms;
/// Current time (Bluetooth assigned number).
constexpr std::string_view kCurrentTime = "2a2b";

std::vector<std::string> hintsForBus() {
  std::vector<std::string> hints{"Send one from another terminal:"};
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
  return fmt::format("{:02}:{:02}:{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

/// By the seconds of the band's clock.
platform::TimeInterval untilNextMinute(const platform::Bytes& clock) {
  constexpr std::size_t kSecond = 6;
  const auto second = clock.size() > kSecond ? std::min<std::uint8_t>(clock[kSecond], 59) : 0;
  return 1min - std::chrono::seconds(second);
}

/// What an action looks like in the list of events.
std::string_view describe(Action action) {
  switch (action) {
    case Action::notify:
      return "an app notifies";
    case Action::call:
      return "Anna calls";
    case Action::hangUp:
      return "the call is hung up";
    case Action::measure:
      return "a measurement is asked for";
    case Action::walk:
      return "a hundred steps are walked";
    case Action::pressButton:
      return "the button is pressed";
    case Action::leaveRange:
      return "the band leaves range";
    case Action::comeBack:
      return "the band comes back";
    case Action::quit:
      break;
  }
  return "quit";
}

}  // namespace

LiveView::LiveView(platform::linux::LinuxRunLoop& loop, const platform::Clock& clock,
                   platform::linux::BusConnection& bus, platform::Log& log)
    : loop_(loop),
      clock_(clock),
      bus_(bus),
      daemon_(bus, "org.corvale.wrixel2dIpc"),
      distributedCenter_(bus, log, &daemon_),
      actions_(bus) {
  view_.hints = hintsForBus();
}

platform::ErrorOrNone LiveView::start() {
  auto terminal = Terminal::takeOver(loop_, {[this] { redrawSoon(); },
                                             [this](char key) {
                                               if (const auto action = menu().actionFor(key)) {
                                                 perform(*action);
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

  band_ = std::make_unique<BandClient>(
      bus_,
      BandEvents{[this] { bandChanged(); },
                 [this](const Displayed& displayed) { showDisplayed(displayed); },
                 [this](unsigned on, unsigned off, unsigned count) { vibrate(on, off, count); },
                 [this](std::string_view characteristic, platform::ByteView value) {
                   written(characteristic, value);
                 }});
  daemon_.start({});
  measurements_ = distributedCenter_.addObserver(
      "org.corvale.wrixel2.measure", [this](const platform::Notification& notification) {
        view_.heartRate.measured(platform::intForKey(notification.userInfo, "heartRate"));
        redrawSoon();
      });
  redrawSoon();
  return std::nullopt;
}

Menu LiveView::menu() const { return {band_ ? band_->state() : std::nullopt, isCalling_}; }

void LiveView::perform(Action action) {
  if (action == Action::quit) {
    loop_.stop(0);
    return;
  }
  const auto error = carryOut(action);
  addEvent(error ? fmt::format("> not done: {} ({})", describe(action), error->localizedDescription)
                 : fmt::format("> {}", describe(action)));
}

platform::ErrorOrNone LiveView::carryOut(Action action) {
  switch (action) {
    case Action::notify:
      return actions_.notify();
    case Action::call:
    case Action::hangUp: {
      const bool calls = action == Action::call;
      auto error = calls ? actions_.call() : actions_.hangUp();
      isCalling_ = error ? isCalling_ : calls;
      return error;
    }
    case Action::measure:
      return actions_.measure();
    case Action::walk:
      return actions_.walk();
    case Action::pressButton:
      return actions_.pressButton();
    case Action::leaveRange:
    case Action::comeBack:
      return actions_.setIsInRange(action == Action::comeBack);
    case Action::quit:
      break;
  }
  return std::nullopt;
}

void LiveView::bandChanged() {
  const auto& band = band_->state();
  if (!band || band->link == "disconnected") {
    view_.heartRate.linkEnded();
  }
  const platform::Bytes clock = band ? band->clock : platform::Bytes();
  if (clock != clockOfTimer_) {
    clockOfTimer_ = clock;
    clockTimer_.reset();
    if (band) {
      clockTimer_ =
          loop_.scheduledTimer(untilNextMinute(clock), false, [this] { band_->refresh(); });
    }
  }
  redrawSoon();
}

void LiveView::written(std::string_view characteristic, platform::ByteView value) {
  view_.heartRate.written(characteristic, value);
  if (platform::UUID::fromText(characteristic) == platform::UUID::withString(kCurrentTime)) {
    band_->refresh();
  }
  redrawSoon();
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
  view_.menu = menu().items();
  terminal_->show(drawScreen(view_, terminal_->size()));
}

}  // namespace wrixel2::bandview
