#include "band/VirtualBandObject.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "band/VirtualBand.h"

namespace wrixel2::band {

using platform::Array;
using platform::Bytes;
using platform::ByteView;
using platform::Error;
using platform::ErrorOrNone;
using platform::ExportedProperty;
using platform::Value;

namespace {

/// The number, if the value is one within the limits.
std::optional<std::int64_t> numberWithin(const Value& value, std::int64_t least,
                                         std::int64_t largest) {
  if (!std::holds_alternative<std::int64_t>(value.variant())) {
    return std::nullopt;
  }
  const std::int64_t number = value.longValue();
  return number < least || number > largest ? std::nullopt : std::optional<std::int64_t>(number);
}

Error badValue(std::string_view expected) { return {EINVAL, fmt::format("Expected {}", expected)}; }

ExportedProperty counter(VirtualBand& band, const char* name,
                         std::uint32_t (VirtualBand::*get)() const,
                         void (VirtualBand::*set)(std::uint32_t)) {
  return {name, "u", [&band, get] { return Value((band.*get)()); },
          [&band, set](const Value& value) -> ErrorOrNone {
            const auto number = numberWithin(value, 0, std::numeric_limits<std::uint32_t>::max());
            if (!number) {
              return badValue("a number of 32 bits");
            }
            (band.*set)(static_cast<std::uint32_t>(*number));
            return std::nullopt;
          }};
}

std::vector<ExportedProperty> propertiesOf(VirtualBand& band) {
  return {
      {"Link", "s", [&band] { return Value(nameOfLink(band.link())); }, nullptr},
      {"Address", "s", [&band] { return Value(band.address()); }, nullptr},
      {"PairingKey", "s", [&band] { return Value(band.pairingKey()); },
       [&band](const Value& value) -> ErrorOrNone {
         if (value.text() == nullptr) {
           return badValue("a text");
         }
         band.setPairingKey(*value.text());
         return std::nullopt;
       }},
      {"BatteryLevel", "y", [&band] { return Value(int{band.batteryLevel()}); },
       [&band](const Value& value) -> ErrorOrNone {
         const auto level = numberWithin(value, 0, 100);
         return level ? band.setBatteryLevel(static_cast<unsigned>(*level))
                      : badValue("a number from 0 to 100");
       }},
      counter(band, "Steps", &VirtualBand::steps, &VirtualBand::setSteps),
      counter(band, "Distance", &VirtualBand::distance, &VirtualBand::setDistance),
      counter(band, "Calories", &VirtualBand::calories, &VirtualBand::setCalories),
      {"HeartRate", "y", [&band] { return Value(int{band.heartRate()}); },
       [&band](const Value& value) -> ErrorOrNone {
         const auto rate = numberWithin(value, 0, std::numeric_limits<std::uint8_t>::max());
         if (!rate) {
           return badValue("a number from 0 to 255");
         }
         band.setHeartRate(static_cast<std::uint8_t>(*rate));
         return std::nullopt;
       }},
      {"Clock", "ay", [&band] { return Value(band.currentTime()); }, nullptr},
      {"InRange", "b", [&band] { return Value(band.isInRange()); },
       [&band](const Value& value) -> ErrorOrNone {
         if (!std::holds_alternative<bool>(value.variant())) {
           return badValue("a boolean");
         }
         band.setIsInRange(value.boolValue());
         return std::nullopt;
       }},
  };
}

std::vector<platform::ExportedMethod> methodsOf(VirtualBand& band) {
  return {
      {"PressButton",
       {},
       [&band](const Array&) -> ErrorOrNone {
         band.pressButton();
         return std::nullopt;
       }},
      {"Drop",
       {{"code", "i"}},
       [&band](const Array& arguments) -> ErrorOrNone {
         return band.drop(arguments.at(0).intValue());
       }},
      {"RefuseAuthentication",
       {{"times", "u"}},
       [&band](const Array& arguments) -> ErrorOrNone {
         const auto times =
             numberWithin(arguments.at(0), 0, std::numeric_limits<std::uint32_t>::max());
         if (!times) {
           return badValue("a number of 32 bits");
         }
         band.refuseAuthentication(static_cast<unsigned>(*times));
         return std::nullopt;
       }},
  };
}

std::vector<platform::ExportedSignal> bandSignals() {
  return {
      {"Written", {{"service", "s"}, {"characteristic", "s"}, {"value", "ay"}, {"type", "s"}}},
      {"Displayed", {{"text", "s"}, {"icon", "ay"}}},
      {"Vibrated", {{"on", "u"}, {"off", "u"}, {"count", "u"}}},
  };
}

std::string_view nameOfProperty(BandProperty property) {
  switch (property) {
    case BandProperty::link:
      return "Link";
    case BandProperty::pairingKey:
      return "PairingKey";
    case BandProperty::batteryLevel:
      return "BatteryLevel";
    case BandProperty::steps:
      return "Steps";
    case BandProperty::distance:
      return "Distance";
    case BandProperty::calories:
      return "Calories";
    case BandProperty::heartRate:
      return "HeartRate";
    case BandProperty::isInRange:
      return "InRange";
  }
  return "";
}

}  // namespace

platform::Result<std::unique_ptr<VirtualBandObject>> VirtualBandObject::create(
    VirtualBand& band, platform::ObjectExporter& exporter) {
  auto object = exporter.exportObject(
      kName, kPath, {std::string(kName), propertiesOf(band), methodsOf(band), bandSignals()});
  if (!object) {
    return object.error();
  }
  return std::unique_ptr<VirtualBandObject>(new VirtualBandObject(band, std::move(*object)));
}

VirtualBandObject::VirtualBandObject(VirtualBand& band,
                                     std::unique_ptr<platform::ExportedObject> object)
    : band_(band), object_(std::move(object)) {
  band_.addObserver(*this);
}

VirtualBandObject::~VirtualBandObject() { band_.removeObserver(*this); }

void VirtualBandObject::bandDidReceiveWrite(const platform::UUID& service,
                                            const platform::UUID& characteristic, ByteView value,
                                            platform::WriteType type) {
  object_->emitSignal(
      "Written", {service.longText(), characteristic.longText(), Bytes(value.begin(), value.end()),
                  type == platform::WriteType::withResponse ? "request" : "command"});
}

void VirtualBandObject::bandDidDisplay(std::string_view text, ByteView icon) {
  object_->emitSignal("Displayed", {text, Bytes(icon.begin(), icon.end())});
}

void VirtualBandObject::bandDidVibrate(unsigned on, unsigned off, unsigned count) {
  object_->emitSignal("Vibrated", {on, off, count});
}

void VirtualBandObject::bandDidChange(BandProperty property) {
  object_->propertyChanged(nameOfProperty(property));
}

}  // namespace wrixel2::band
