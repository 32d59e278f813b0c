#include "bandview/BandClient.h"

namespace wrixel2::bandview {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusMessage;

constexpr const char* kName = "org.corvale.wrixel2.VirtualBand";
constexpr const char* kPath = "/org/corvale/wrixel2/VirtualBand";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

void readText(const Dictionary& properties, std::string_view name, std::string& text) {
  if (const auto value = platform::textForKey(properties, name)) {
    text = *value;
  }
}

template <typename Number>
void readNumber(const Dictionary& properties, std::string_view name, Number& number) {
  if (const platform::Value* value = platform::find(properties, name)) {
    number = static_cast<Number>(value->longValue());
  }
}

/// Takes over the properties that are there and leaves the others.
void apply(const Dictionary& properties, BandState& state) {
  readText(properties, "Link", state.link);
  readText(properties, "Address", state.address);
  readNumber(properties, "BatteryLevel", state.battery);
  readNumber(properties, "Steps", state.steps);
  readNumber(properties, "Distance", state.distance);
  readNumber(properties, "Calories", state.calories);
  readNumber(properties, "InRange", state.isInRange);
  const platform::Value* clock = platform::find(properties, "Clock");
  if (clock != nullptr && clock->data() != nullptr) {
    state.clock = *clock->data();
  }
}

unsigned numberAt(const Array& arguments, std::size_t index) {
  return index < arguments.size() ? static_cast<unsigned>(arguments[index].longValue()) : 0;
}

}  // namespace

platform::Result<std::unique_ptr<BandClient>> BandClient::start(platform::linux::BusConnection& bus,
                                                                BandEvents events) {
  std::unique_ptr<BandClient> client(new BandClient(bus, std::move(events)));
  if (auto error = client->observe()) {
    return *error;
  }
  client->refresh();
  return client;
}

platform::ErrorOrNone BandClient::observe() {
  auto owner = bus_.watchOwner(kName, [this](const std::string& now) { ownerChanged(now); });
  if (!owner) {
    return owner.error();
  }
  ownerChanges_ = std::move(*owner);
  auto signals =
      bus_.addMatch(std::string("type='signal',sender='") + kName + "',path='" + kPath + "'",
                    [this](const BusMessage& message) { received(message); });
  if (!signals) {
    return signals.error();
  }
  signals_ = std::move(*signals);
  return std::nullopt;
}

void BandClient::refresh() {
  auto call = bus_.newMethodCall({kName, kPath, kProperties}, "GetAll", "s", {kName});
  if (!call) {
    return;
  }
  call->setAutoStart(false);
  auto pending = bus_.callAsync(*call, [this](const BusMessage& reply) {
    const auto arguments = reply.arguments();
    if (reply.isError() || !arguments || arguments->empty() ||
        arguments->front().dictionary() == nullptr) {
      gone();
      return;
    }
    if (!state_) {
      state_.emplace();
    }
    apply(*arguments->front().dictionary(), *state_);
    events_.changed();
  });
  if (pending) {
    pending_ = std::move(*pending);
  }
}

void BandClient::gone() {
  state_.reset();
  events_.changed();
}

void BandClient::ownerChanged(const std::string& owner) {
  if (owner.empty()) {
    pending_.reset();
    gone();
  } else {
    refresh();
  }
}

void BandClient::received(const BusMessage& message) {
  const auto arguments = message.arguments();
  if (!arguments) {
    return;
  }
  if (message.is(kName, "Written") && arguments->size() == 4 && (*arguments)[1].text() != nullptr &&
      (*arguments)[2].data() != nullptr) {
    events_.written(*(*arguments)[1].text(), *(*arguments)[2].data());
  } else if (message.is(kName, "Vibrated")) {
    events_.vibrated(numberAt(*arguments, 0), numberAt(*arguments, 1), numberAt(*arguments, 2));
  } else if (message.is(kName, "Displayed") && arguments->size() == 2 &&
             (*arguments)[0].text() != nullptr && (*arguments)[1].data() != nullptr) {
    events_.displayed({*(*arguments)[1].data(), *(*arguments)[0].text()});
  } else if (message.is(kProperties, "PropertiesChanged")) {
    propertiesChanged(*arguments);
  }
}

void BandClient::propertiesChanged(const Array& arguments) {
  const Dictionary* changed = arguments.size() > 1 ? arguments[1].dictionary() : nullptr;
  if (state_ && changed != nullptr) {
    apply(*changed, *state_);
    events_.changed();
  }
}

}  // namespace wrixel2::bandview
