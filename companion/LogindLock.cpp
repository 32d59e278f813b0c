#include "companion/LogindLock.h"

#include <utility>

namespace wrixel2::companion {

using platform::Array;
using platform::linux::BusMessage;
using platform::linux::BusService;
using platform::linux::PropertyWatch;

namespace {

constexpr const char* kService = "org.freedesktop.login1";
constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kManager = "org.freedesktop.login1.Manager";

}  // namespace

void LogindLock::busFound(platform::linux::BusConnection& bus) {
  bus_ = &bus;
  logind_ = std::make_unique<BusService>(bus, kService);
  // The user's session may begin after this program, and after another one has ended.
  for (const char* member : {"SessionNew", "SessionRemoved"}) {
    logind_->onSignal(kManager, member, "so",
                      [this](const BusMessage&, const Array&) { findSession(); });
  }
  logind_->start([this](bool isThere) {
    if (isThere) {
      findSession();
    } else {
      follow("");
    }
  });
}

void LogindLock::busLost() {
  logind_.reset();
  follow("");
  bus_ = nullptr;
}

void LogindLock::findSession() {
  logind_->dropQuestions();
  logind_->ask(
      kPath, kManager, "GetSession", "s", {"auto"}, "o",
      [this](const BusMessage&, const Array& answer) { follow(*answer[0].text()); },
      [this] { findSessionOfProcess(); });
}

void LogindLock::findSessionOfProcess() {
  logind_->ask(
      kPath, kManager, "GetSessionByPID", "u", {0}, "o",
      [this](const BusMessage&, const Array& answer) { follow(*answer[0].text()); },
      [this] { follow(""); });
}

void LogindLock::follow(const std::string& path) {
  if (std::exchange(session_, path) == path) {
    return;
  }
  watch_.reset();
  if (path.empty()) {
    say(std::nullopt);
    return;
  }
  watch_ = std::make_unique<PropertyWatch>(
      *bus_, platform::linux::BusAddress{kService, path, "org.freedesktop.login1.Session"},
      [this](const PropertyWatch::Properties& properties) {
        const auto* hint = properties ? platform::find(*properties, "LockedHint") : nullptr;
        say(hint == nullptr ? std::nullopt : std::optional(hint->boolValue()));
      });
}

}  // namespace wrixel2::companion
