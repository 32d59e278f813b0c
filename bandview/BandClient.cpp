#include "bandview/BandClient.h"

namespace wrixel2::bandview {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusMessage;

constexpr const char* kName = "org.corvale.wrixel2.VirtualBand";
constexpr const char* kPath = "/org/corvale/wrixel2/VirtualBand";

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

BandState stateOf(const Dictionary& properties) {
  BandState state;
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
  return state;
}

unsigned numberOf(const platform::Value& value) { return static_cast<unsigned>(value.longValue()); }

}  // namespace

BandClient::BandClient(platform::linux::BusConnection& bus, BandEvents events)
    : events_(std::move(events)),
      band_(bus, {kName, kPath, kName},
            [this](const platform::linux::PropertyWatch::Properties& properties) {
              state_ = properties ? std::optional(stateOf(*properties)) : std::nullopt;
              events_.changed();
            }) {
  auto& service = band_.service();
  service.onSignal(kName, "Written", "ssays", [this](const BusMessage&, const Array& arguments) {
    events_.written(*arguments[1].text(), *arguments[2].data());
  });
  service.onSignal(kName, "Vibrated", "uuu", [this](const BusMessage&, const Array& arguments) {
    events_.vibrated(numberOf(arguments[0]), numberOf(arguments[1]), numberOf(arguments[2]));
  });
  service.onSignal(kName, "Displayed", "say", [this](const BusMessage&, const Array& arguments) {
    events_.displayed({*arguments[1].data(), *arguments[0].text()});
  });
}

}  // namespace wrixel2::bandview
