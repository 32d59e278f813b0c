#include "platform/linux/SdBusObjectExporter.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kName = "org.example.Thing";
const BusAddress kThing{kName, "/org/example/Thing", kName};

class ObjectExporterTest : public BusTest {
 protected:
  ObjectExporterTest() {
    auto result = exporter.exportObject(kName, kThing.path, interface());
    EXPECT_TRUE(result);
    thing = std::move(*result);
  }

  ExportedInterface interface() {
    ExportedInterface result;
    result.name = kName;
    result.properties = {{"Level", "y", [this] { return Value(level); },
                          [this](const Value& value) -> ErrorOrNone {
                            if (value.intValue() > 100) {
                              return Error{EINVAL, "a level is at most 100"};
                            }
                            level = value.intValue();
                            return std::nullopt;
                          }},
                         {"Clock", "ay", [] { return Value(Bytes{1, 2, 3}); }, nullptr},
                         {"When", "x", [] { return Value(5'000'000'000LL); }, nullptr},
                         {"InRange", "b", [] { return Value(true); }, nullptr},
                         {"Steps", "u", [] { return Value(4'000'000'000LL); }, nullptr}};
    result.methods = {{"Drop", {{"code", "i"}}, [this](const Array& arguments) -> ErrorOrNone {
                         if (arguments[0].intValue() == 6) {
                           return Error{EOPNOTSUPP, "the radio cannot"};
                         }
                         dropped = arguments[0].intValue();
                         return std::nullopt;
                       }}};
    result.signals = {{"Written", {{"service", "s"}, {"value", "ay"}}}};
    return result;
  }

  // From the other program; the value of a property, or the error's name.
  Value property(std::string_view name) {
    const auto reply =
        answer({kName, kThing.path, "org.freedesktop.DBus.Properties"}, "Get", "ss", {kName, name});
    return reply.isError() ? Value(reply.errorName()) : reply.arguments()->front();
  }
  std::string setProperty(std::string_view name, const char* type, int value) {
    auto message = other->newMethodCall({kName, kThing.path, "org.freedesktop.DBus.Properties"},
                                        "Set", "ss", {kName, name});
    sd_bus_message_append(message->get(), "v", type, value);
    return std::string(answer(std::move(*message)).errorName());
  }

  int level = 50;
  int dropped = 0;
  SdBusObjectExporter exporter{*own};
  std::unique_ptr<ExportedObject> thing;
};

TEST_F(ObjectExporterTest, PropertiesAreReadAndWritten) {
  const std::pair<const char*, Value> cases[] = {
      {"Level", 50},     {"Clock", Bytes{1, 2, 3}},  {"When", 5'000'000'000LL},
      {"InRange", true}, {"Steps", 4'000'000'000LL}, {"None", SD_BUS_ERROR_UNKNOWN_PROPERTY}};
  for (const auto& [name, value] : cases) {
    EXPECT_EQ(property(name), value) << name;
  }
  EXPECT_EQ(setProperty("Level", "y", 77), "");
  EXPECT_EQ(setProperty("Level", "y", 101), SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(setProperty("Level", "i", 5), SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(setProperty("InRange", "b", 0), SD_BUS_ERROR_PROPERTY_READ_ONLY);
  EXPECT_EQ(level, 77);
}

TEST_F(ObjectExporterTest, MethodsAnswerOrRefuse) {
  EXPECT_EQ(answer(kThing, "Drop", "i", {7}).errorName(), "");
  const auto refusal = answer(kThing, "Drop", "i", {6});
  EXPECT_EQ(refusal.errorName(), SD_BUS_ERROR_NOT_SUPPORTED);
  EXPECT_NE(refusal.error().localizedDescription.find("the radio cannot"), std::string::npos);
  EXPECT_EQ(answer(kThing, "Drop", "s", {"7"}).errorName(), SD_BUS_ERROR_INVALID_ARGS);
  EXPECT_EQ(answer(kThing, "Rise").errorName(), SD_BUS_ERROR_UNKNOWN_METHOD);
  EXPECT_EQ(dropped, 7);
}

TEST_F(ObjectExporterTest, SignalsAndChangesAreAnnounced) {
  std::vector<Array> heard;
  auto match =
      other->addMatch("type='signal',path='/org/example/Thing'",
                      [&](const BusMessage& message) { heard.push_back(*message.arguments()); });
  ASSERT_TRUE(match);
  thing->emitSignal("Written", {"fee0", Bytes{9}});
  level = 12;
  thing->propertyChanged("Level");
  serveUntil([&] { return heard.size() == 2; });
  EXPECT_EQ(heard[0], (Array{"fee0", Bytes{9}}));
  EXPECT_EQ(heard[1], (Array{kName, Dictionary{{"Level", 12}}, Array{}}));
}

TEST_F(ObjectExporterTest, AnObjectGoesWithItsHandle) {
  SdBusObjectExporter second(*other);
  const auto refused = second.exportObject(kName, kThing.path, interface());
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, EEXIST);
  thing.reset();
  serveUntil([&] { return bool(second.exportObject(kName, kThing.path, interface())); });
}

TEST_F(ObjectExporterTest, OurOwnAccessToPropertiesOfOthers) {
  // In one program with one loop the answer to a waiting call cannot come; the errors can.
  const auto nobody = BusAddress{"org.example.Nobody", "/a", "a.b"};
  EXPECT_FALSE(own->getProperty(nobody, "Level"));
  EXPECT_FALSE(own->getAllProperties(nobody));
  EXPECT_TRUE(own->setProperty(nobody, "Level", "y", 300));
  EXPECT_TRUE(own->setProperty(nobody, "Level", "y", 3));
  EXPECT_NE(own->getProperty(kDriver, "Features")->array(), nullptr);
  EXPECT_NE(find(*own->getAllProperties(kDriver), "Interfaces"), nullptr);
  EXPECT_TRUE(*own->nameHasOwner(kName));
  EXPECT_FALSE(*own->nameHasOwner("org.example.Nobody"));
}

}  // namespace
}  // namespace wrixel2::platform::linux
