#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"
#include "band/VirtualBandObject.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::band {
namespace {

using platform::Array;
using platform::Bytes;
using platform::Value;

constexpr std::string_view kPath = "/org/corvale/wrixel2/VirtualBand";

class VirtualBandObjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform_.radio.addBand(band_);
    auto made = VirtualBandObject::create(*band_, platform_.objectExporter);
    ASSERT_TRUE(made);
    object_ = std::move(*made);
  }

  platform::ErrorOrNone set(std::string_view name, const Value& value) {
    return platform_.objectExporter.setProperty(kPath, name, value);
  }
  Value get(std::string_view name) {
    return platform_.objectExporter.property(kPath, name).value();
  }

  platform::simulated::SimulatedPlatform platform_;
  std::shared_ptr<VirtualBand> band_ = std::make_shared<VirtualBand>(platform_.handle());
  std::unique_ptr<VirtualBandObject> object_;
};

TEST_F(VirtualBandObjectTest, DeclaresEveryMemberWithItsSignature) {
  const auto* const interface = platform_.objectExporter.interfaceAtPath(kPath);
  ASSERT_NE(interface, nullptr);
  EXPECT_EQ(interface->name, "org.corvale.wrixel2.VirtualBand");
  EXPECT_TRUE(platform_.objectExporter.isNameTaken("org.corvale.wrixel2.VirtualBand"));
  std::vector<std::string> members;
  for (const auto& property : interface->properties) {
    members.push_back(property.name + " " + property.signature + (property.set ? " rw" : " r"));
  }
  const auto add = [&members](const auto& list) {
    for (const auto& member : list) {
      std::string text = member.name;
      for (const auto& argument : member.arguments) {
        text += " " + argument.name + ":" + argument.signature;
      }
      members.push_back(text);
    }
  };
  add(interface->methods);
  add(interface->signals);
  EXPECT_EQ(members,
            (std::vector<std::string>{
                "Link s r", "Address s r", "PairingKey s rw", "BatteryLevel y rw", "Steps u rw",
                "Distance u rw", "Calories u rw", "HeartRate y rw", "Clock ay r", "InRange b rw",
                "PressButton", "Drop code:i", "RefuseAuthentication times:u",
                "Written service:s characteristic:s value:ay type:s", "Displayed text:s icon:ay",
                "Vibrated on:u off:u count:u"}));
}

TEST_F(VirtualBandObjectTest, PropertiesAreTheBandsAndAnnounceTheirChanges) {
  EXPECT_EQ(get("Address"), Value("c8:0f:10:aa:bb:0c"));
  EXPECT_EQ(get("PairingKey"), Value(kDefaultPairingKey));
  EXPECT_EQ(get("Clock"), Value(band_->currentTime()));
  const std::pair<const char*, Value> settable[] = {
      {"PairingKey", "key"}, {"BatteryLevel", 100}, {"Steps", 4294967295U}, {"Distance", 7},
      {"Calories", 8},       {"HeartRate", 255},    {"InRange", false}};
  for (const auto& [name, value] : settable) {
    SCOPED_TRACE(name);
    platform_.objectExporter.clearRecords();
    EXPECT_EQ(set(name, value), std::nullopt);
    EXPECT_EQ(get(name), value);
    const auto& changes = platform_.objectExporter.propertyChanges();
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(changes[0].name, name);
  }
  EXPECT_EQ(band_->steps(), 4294967295U);

  const std::pair<const char*, Value> refused[] = {
      {"PairingKey", 5},  {"BatteryLevel", 101}, {"BatteryLevel", "50"}, {"Steps", -1},
      {"HeartRate", 256}, {"InRange", 1},        {"Clock", Bytes{}}};
  for (const auto& [name, value] : refused) {
    EXPECT_TRUE(set(name, value).has_value()) << name;
  }
}

TEST_F(VirtualBandObjectTest, SignalsTellOfWritesDisplaysVibrationsAndTheLink) {
  auto& exporter = platform_.objectExporter;
  band_->linkUp();
  EXPECT_EQ(get("Link"), Value("connected"));
  EXPECT_EQ(exporter.propertyChanges().at(0).name, "Link");
  const Bytes request{0x02, 0x00};
  ASSERT_EQ(band_->write(kAuthService, kAuthInfo, request, platform::WriteType::withResponse),
            std::nullopt);
  ASSERT_TRUE(band_->write(kImmediateAlertService, kAlertLevel, request,
                           platform::WriteType::withoutResponse));
  const auto written = exporter.emittedSignals("Written");
  ASSERT_EQ(written.size(), 2U);
  EXPECT_EQ(written[0].arguments,
            (Array{"0000fee1-0000-1000-8000-00805f9b34fb", "00000009-0000-3512-2118-0009af100700",
                   request, "request"}));
  EXPECT_EQ(written[1].arguments[3], Value("command"));

  object_->bandDidDisplay("Anna", Bytes{5, 1});
  object_->bandDidVibrate(75, 1500, 3);
  EXPECT_EQ(exporter.emittedSignals("Displayed").at(0).arguments, (Array{"Anna", Bytes{5, 1}}));
  EXPECT_EQ(exporter.emittedSignals("Vibrated").at(0).arguments, (Array{75, 1500, 3}));
}

TEST_F(VirtualBandObjectTest, MethodsHandleTheBand) {
  auto& exporter = platform_.objectExporter;
  EXPECT_EQ(exporter.call(kPath, "PressButton"), std::nullopt);
  EXPECT_TRUE(exporter.call(kPath, "Drop", {7}).has_value());  // no link
  platform_.radio.connectBySomebodyElse(*band_);
  EXPECT_TRUE(exporter.call(kPath, "Drop", {5}).has_value());
  EXPECT_EQ(exporter.call(kPath, "Drop", {7}), std::nullopt);
  platform_.runLoop.runUntilIdle();
  EXPECT_EQ(band_->link(), BandLink::disconnected);
  for (const int times : {2, 0}) {  // none: whom it was told to refuse is let in again
    EXPECT_EQ(exporter.call(kPath, "RefuseAuthentication", {times}), std::nullopt);
  }
  EXPECT_TRUE(exporter.call(kPath, "RefuseAuthentication", {"two"}).has_value());
}

TEST_F(VirtualBandObjectTest, ATakenNameIsAnErrorAndItsEndFreesTheName) {
  EXPECT_FALSE(VirtualBandObject::create(*band_, platform_.objectExporter));
  object_.reset();
  band_->setSteps(1);  // nobody listens any more
  EXPECT_FALSE(platform_.objectExporter.isExported(kPath));
  EXPECT_TRUE(VirtualBandObject::create(*band_, platform_.objectExporter));
}

}  // namespace
}  // namespace wrixel2::band
