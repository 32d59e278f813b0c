#include "platform/linux/PropertyWatch.h"

#include <utility>

#include <fmt/format.h>

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";

}  // namespace

PropertyWatch::PropertyWatch(BusConnection& bus, const BusAddress& address, Callback changed,
                             TimeInterval answerTime)
    : service_(bus, address.destination, answerTime),
      path_(address.path),
      interface_(address.interface),
      changed_(std::move(changed)) {
  service_.onSignal(
      kPropertiesInterface, "PropertiesChanged", "sa{sv}as",
      [this](const BusMessage&, const Array& arguments) { propertiesChanged(arguments); },
      fmt::format(",path='{}',arg0='{}'", path_, interface_));
  service_.start([this](bool isThere) {
    if (isThere) {
      refresh();
    } else {
      tell(std::nullopt);
    }
  });
}

void PropertyWatch::refresh() {
  service_.dropQuestions();
  service_.ask(
      path_, kPropertiesInterface, "GetAll", "s", {interface_}, "a{sv}",
      [this](const BusMessage&, const Array& answer) { tell(*answer.front().dictionary()); },
      [this] { tell(std::nullopt); });
}

void PropertyWatch::propertiesChanged(const Array& arguments) {
  if (service_.isAsked()) {
    return;  // the answer comes after the change and holds it
  }
  // Some are only said to have changed; and an object that was not there has come to be.
  if (!properties_ || !arguments[2].array()->empty()) {
    refresh();
    return;
  }
  Properties changed = properties_;
  for (const auto& [name, value] : *arguments[1].dictionary()) {
    changed->insert_or_assign(name, value);
  }
  tell(changed);
}

void PropertyWatch::tell(const Properties& properties) {
  if (std::exchange(isTold_, true) && properties == properties_) {
    return;
  }
  properties_ = properties;
  const Callback changed = changed_;
  changed(properties);
}

}  // namespace wrixel2::platform::linux
