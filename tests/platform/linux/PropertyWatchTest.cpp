#include <string>
#include <utility>
#include <vector>

#include "platform/linux/PropertyWatch.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

using Told = std::vector<std::string>;

constexpr const char* kLamp = "org.example.Lamp";
constexpr const char* kPath = "/org/example/Lamp";

/// A lamp that another program of the bus has, with two properties.
class PropertyWatchTest : public BusTest {
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
  void watch(TimeInterval answerTime = BusConnection::kDefaultTimeout) {
    watching = std::make_unique<PropertyWatch>(
        *own, BusAddress{kLamp, kPath, kLamp},
        [this](const PropertyWatch::Properties& properties) {
          told.push_back(!properties ? "none"
                                     : textForKey(*properties, "Colour").value_or("?") +
                                           (boolForKey(*properties, "On") ? " on" : ""));
          if (isToBeDestroyed) {
            watching.reset();
          }
        },
        answerTime);
    EXPECT_TRUE(told.empty()) << "never before start() has returned";
  }
  static void announce(const BusConnection& from, const Dictionary& changed,
                       const Array& invalidated = {}) {
    from.emitSignal(kPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
                    {kLamp, changed, invalidated});
  }
  /// What has been told since the last call, once all that is under way has arrived.
  Told toldSince() {
    for (int round = 0; round < 3; ++round) {  // what is asked, and what is asked upon that
      serveAll();
    }
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

TEST_F(PropertyWatchTest, AsksAgainWhatIsNotAnsweredInTime) {
  exportLamp();
  appear();
  int unanswered = 2;
  sd_bus_slot* slot = nullptr;
  sd_bus_add_filter(
      other->get(), &slot,
      [](sd_bus_message* message, void* left, sd_bus_error*) {
        return sd_bus_message_is_method_call(message, nullptr, "GetAll") > 0 &&
                       (*static_cast<int*>(left))-- > 0
                   ? 1
                   : 0;
      },
      &unanswered);
  const BusSlot filter(slot);
  watch(std::chrono::milliseconds(20));
  serveUntil([this] { return !told.empty(); });
  EXPECT_EQ(unanswered, -1);
  EXPECT_EQ(toldSince(), Told{"red"});
  announce(*other, {{"On", true}});
  EXPECT_EQ(toldSince(), Told{"red on"});
}

}  // namespace
}  // namespace wrixel2::platform::linux
