#include "FakeBluetooth.h"
#include "protocol/BleObjects/YMSCBService.h"

namespace wrixel2::bleobjects {
namespace {

using platform::LogLevel;

class YMSCBServiceTest : public BleObjectsTest {
 protected:
  template <typename Offset>
  std::shared_ptr<YMSCBService> make(std::uint64_t baseHi, std::uint64_t baseLo, Offset offset) {
    return std::make_shared<YMSCBService>(phone.handle(), "subject", peripheral, baseHi, baseLo,
                                          offset);
  }

  /// Notes the names of what was discovered.
  DiscoverCharacteristicsCallback notingDiscovery(std::string name) {
    return
        [this, name = std::move(name)](const CharacteristicDict& found, const ErrorOrNone& error) {
          journal.push_back(name + " " + outcome(error));
          for (const auto& [key, characteristic] : found) {
            journal.back() += " " + key;
          }
        };
  }
};

TEST_F(YMSCBServiceTest, UUIDsComeFromTheBaseAndTheOffset) {
  EXPECT_EQ(make(0, 0, ServiceOffset{0x180D})->uuid().text(), "180d");
  EXPECT_EQ(make(0, 0, ServiceBLEOffset{0xFEE0})->uuid().text(), "fee0");
  EXPECT_EQ(make(0x3512, 0x21180009AF100700, ServiceOffset{0x3})->uuid().text(),
            "00000000-0000-3512-2118-0009af100703");
  // One of the two words is a base already.
  EXPECT_EQ(make(0, 1, ServiceOffset{0x180D})->uuid().text(),
            "00000000-0000-0000-0000-00000000180d");

  const auto subject = make(0x1000, 0x800000805F9B34FB, ServiceBLEOffset{0x180D});
  EXPECT_EQ(subject->uuid().text(), "180d");
  subject->addCharacteristicWithOffset("offset", 5);
  subject->addCharacteristicWithBLEOffset("ble", 0x2A37);
  subject->addCharacteristicWithAddress("address", 0x2A39);
  subject->addCharacteristicWithUuid("uuid", 9, "00000006-0000-3512-2118-0009AF100700");
  const struct {
    const char* name;
    const char* text;
    std::int32_t offset;
  } kCases[] = {{"offset", "00000000-0000-1000-8000-00805f9b34ff", 5},
                {"ble", "2a37", 0x2A37},
                {"address", "2a39", 0x2A39},
                {"uuid", "00000006-0000-3512-2118-0009af100700", 0}};
  for (const auto& test : kCases) {
    const auto characteristic = (*subject)[test.name];
    ASSERT_TRUE(characteristic) << test.name;
    EXPECT_EQ(characteristic->uuid().text(), test.text);
    EXPECT_EQ(characteristic->offset(), test.offset);
    EXPECT_EQ(characteristic->parent(), peripheral) << "not the service";
  }
}

TEST_F(YMSCBServiceTest, ASecondCharacteristicOfANameReplacesTheFirst) {
  bind();
  measurement->readValueWithBlock(notingRead(journal, "read"));
  service->addCharacteristicWithAddress("measurement", 0x2A38);
  const auto replacement = (*service)["measurement"];
  EXPECT_EQ(replacement->uuid(), uuid("2a38"));
  EXPECT_EQ(replacement->readCallbacks().count(), 0U);

  // A subset keeps the order of its names and skips those that are unknown.
  EXPECT_EQ(service->characteristicsSubset({"measurement", "nothing", "control"}),
            (std::vector<UUID>{uuid("2a38"), uuid("2a39")}));
  EXPECT_EQ(warnings(), Journal{"WARNING: characteristic key 'nothing' is not found in service "
                                "'heart' for characteristicSubset:"});
}

TEST_F(YMSCBServiceTest, BindingTakesTheFirstOfEachUUIDAndKeepsWhatIsNotFound) {
  service->addCharacteristicWithAddress("twin", 0x2A37);
  const auto second = deviceService->add("2a37");
  EXPECT_EQ(service->findCharacteristic(deviceMeasurement), nullptr) << "not bound yet";
  bind();
  const auto twin = (*service)["twin"];
  EXPECT_EQ(measurement->cbCharacteristic(), deviceMeasurement);
  EXPECT_EQ(twin->cbCharacteristic(), deviceMeasurement);
  EXPECT_EQ(control->cbCharacteristic(), deviceControl);
  // By UUID, not identity, and the first name wins.
  EXPECT_EQ(service->findCharacteristic(second), measurement);
  EXPECT_EQ(service->findCharacteristic(nullptr), nullptr);

  service->syncCharacteristics({second});
  EXPECT_EQ(measurement->cbCharacteristic(), second);
  EXPECT_EQ(control->cbCharacteristic(), deviceControl);
}

TEST_F(YMSCBServiceTest, EnabledOnlyATurnAfterBinding) {
  service->syncCharacteristics(deviceService->known);
  EXPECT_FALSE(service->isEnabled());
  phone.runLoop.runUntilIdle();
  EXPECT_TRUE(service->isEnabled());

  std::make_shared<FakeBandService>(phone.handle(), peripheral, journal)->syncCharacteristics({});
  phone.runLoop.runUntilIdle();  // a service that is gone by then is no matter
}

TEST_F(YMSCBServiceTest, DiscoveryNeedsAPlatformService) {
  service->discoverCharacteristics(std::nullopt, notingDiscovery("never"));
  EXPECT_EQ(phone.log.messages(LogLevel::error), Journal{"CB service is nil"});
  service->handleDiscoveredCharacteristicsResponse(service->characteristicDict(), kNoError);
  EXPECT_TRUE(journal.empty());
  EXPECT_TRUE(device->journal.empty());
}

TEST_F(YMSCBServiceTest, OneDiscoveryIsPendingAtATime) {
  service->setCbService(deviceService);
  service->discoverCharacteristics(std::nullopt, notingDiscovery("replaced"));
  service->discoverCharacteristics(std::vector<UUID>{uuid("2a39")}, notingDiscovery("second"));
  EXPECT_EQ(device->journal, (Journal{"discoverCharacteristics of 180d: all",
                                      "discoverCharacteristics of 180d: 2a39"}));
  const auto answer = [this](const ErrorOrNone& error) {
    service->handleDiscoveredCharacteristicsResponse(service->characteristicDict(), error);
  };
  answer(kFailure);
  answer(kNoError);
  EXPECT_EQ(journal, Journal{"second error 6 control measurement"});

  // One from inside its callback loses its own callback.
  service->discoverCharacteristics(std::nullopt, [this](const auto&, const auto&) {
    service->discoverCharacteristics(std::nullopt, notingDiscovery("inner"));
  });
  answer(kNoError);
  answer(kNoError);
  EXPECT_EQ(device->journal.size(), 4U);
  EXPECT_EQ(journal.size(), 1U);
}

}  // namespace
}  // namespace wrixel2::bleobjects
