#include <string>
#include <utility>
#include <vector>

#include "companion/PropertyWatch.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusSlot;
using Told = std::vector<std::string>;

constexpr const char* kLamp = "org.example.Lamp";
constexpr const char* kPath = "/org/example/Lamp";

/// A lamp that another program of the bus has, with two properties.
class PropertyWatchTest : public platform::linux::BusTest {
 protected:
  void appear() { ASSERT_EQ(other->requestName(kLamp), std::nullopt); }
  void exportLamp() {
    lamp = std::move(*other->addInterface(
        kPath, {kLamp,
                {},
                {{"On", "b", [this] { return Value(isOn); }, nullptr},
                 {"Colour", "s", [this] { return reads++, Value(colour); }, nullptr}},
                {}}));
  }
  void watch() {
    watching = PropertyWatch::start(
        *own, {kLamp, kPath, kLamp}, [this](const PropertyWatch::Properties& properties) {
          told.push_back(!properties ? "none"
                                     : platform::textForKey(*properties, "Colour").value_or("?") +
                                           (platform::boolForKey(*properties, "On") ? " on" : ""));
          if (isToBeDestroyed) {
            watching.reset();
          }
        });
    EXPECT_TRUE(told.empty()) << "never before start() has returned";
  }
  static void announce(const platform::linux::BusConnection& from, const Dictionary& changed,
                       const Array& invalidated = {}) {
    from.emitSignal(kPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                    {kLamp, changed, invalidated});
  }
  /// What has been told since the last call, once all that is under way has arrived.
  Told toldSince() {
    serveAll();
    serveAll();  // and the answers to what that has caused to be asked
    return std::exchange(told, {});
  }

  bool isOn = false;
  std::string colour = "red";
  int reads = 0;
  BusSlot lamp;
  std::unique_ptr<PropertyWatch> watching;
  bool isToBeDestroyed = false;
  Told told;
};

TEST_F(PropertyWatchTest, FollowsAServiceThatIsThere) {
  exportLamp();
  appear();
  watch();
  EXPECT_EQ(toldSince(), Told{"red"});
  announce(*other, {{"On", true}});
  EXPECT_EQ(toldSince(), Told{"red on"});
  announce(*other, {{"On", true}});
  EXPECT_EQ(toldSince(), Told{}) << "nothing has changed";
  colour = "blue";
  isOn = true;
  announce(*other, {}, {"Colour"});
  EXPECT_EQ(toldSince(), Told{"blue on"}) << "only said to have changed";
  announce(*own, {{"On", false}});
  EXPECT_EQ(toldSince(), Told{}) << "somebody else's signal";
  other->emitSignal(kPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", "ss",
                    {kLamp, "On"});
  EXPECT_EQ(toldSince(), Told{}) << "ill-formed";
  isToBeDestroyed = true;  // by who is told
  announce(*other, {{"On", false}});
  announce(*other, {{"On", true}});
  EXPECT_EQ(toldSince(), Told{"blue"});
}

TEST_F(PropertyWatchTest, FollowsAServiceThatComesAndGoes) {
  watch();
  EXPECT_EQ(toldSince(), Told{"none"});
  appear();
  EXPECT_EQ(toldSince(), Told{});
  exportLamp();
  announce(*other, {{"On", false}});
  EXPECT_EQ(toldSince(), Told{"red"}) << "an object may come later than its service";
  other->releaseName(kLamp);
  EXPECT_EQ(toldSince(), Told{"none"});
  announce(*other, {{"On", true}});
  EXPECT_EQ(toldSince(), Told{}) << "it is not the service any more";
  isOn = true;
  appear();
  EXPECT_EQ(toldSince(), Told{"red on"});
  other = open();
  EXPECT_EQ(toldSince(), Told{"none"}) << "it has crashed";
}

TEST_F(PropertyWatchTest, MissesNoChangeWhileItReads) {
  exportLamp();
  appear();
  watch();
  announce(*other, {{"On", false}});  // outdated: the answer is made after it
  isOn = true;
  EXPECT_EQ(toldSince(), Told{"red on"});
  EXPECT_EQ(reads, 1);
}

}  // namespace
}  // namespace wrixel2::companion
