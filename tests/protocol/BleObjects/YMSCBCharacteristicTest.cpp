#include "FakeBluetooth.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/BleObjects/YMSCBDescriptor.h"

namespace wrixel2::bleobjects {
namespace {

using platform::LogLevel;

class YMSCBCharacteristicTest : public BleObjectsTest {};

TEST_F(YMSCBCharacteristicTest, AnswersGoToTheOldestRequest) {
  bind();
  measurement->readValueWithBlock(notingRead(journal, "first read"));
  measurement->readValueWithBlock(notingRead(journal, "second read"));
  control->writeValue({0x15, 0x01}, noting(journal, "first write"));
  control->writeByte(0x1F, noting(journal, "second write"));
  EXPECT_EQ(device->journal,
            (Journal{"read 2a37", "read 2a37", "request 2a39 1501", "request 2a39 1f"}));

  measurement->executeReadCallback(Bytes{1}, kNoError);
  measurement->executeReadCallback(std::nullopt, kFailure);
  control->executeWriteCallback(kFailure);
  control->executeWriteCallback(kNoError);
  EXPECT_EQ(journal, (Journal{"first read 01 ok", "second read none error 6", "first write error 6",
                              "second write ok"}));

  measurement->executeReadCallback(Bytes{2}, kNoError);
  control->executeWriteCallback(kNoError);
  EXPECT_EQ(journal.size(), 4U) << "answers that nobody waits for are dropped";

  control->writeValue({0xAB}, nullptr);
  EXPECT_EQ(device->journal.back(), "command 2a39 ab") << "without a callback none is asked for";
  EXPECT_EQ(control->writeCallbacks().count(), 0U);
}

TEST_F(YMSCBCharacteristicTest, WithoutPlatformObjectsNothingIsSentAndNothingIsEverCalled) {
  const std::string kNull = "###################### NULL value??";
  const auto requestAll = [this](const std::shared_ptr<YMSCBCharacteristic>& subject) {
    phone.log.clear();
    subject->setNotifyValue(true, noting(journal, "notify"));
    subject->writeValue({1}, noting(journal, "write"));
    subject->writeByte(1, nullptr);
    subject->readValueWithBlock(notingRead(journal, "read"));
    EXPECT_FALSE(subject->notificationStateCallback());
    EXPECT_EQ(subject->writeCallbacks().count() + subject->readCallbacks().count(), 0U);
    EXPECT_TRUE(device->journal.empty());
  };
  const Journal kLines = {kNull, kNull, kNull, "cbCharacteristic is null!"};

  requestAll(control);  // not yet discovered
  EXPECT_EQ(warnings(), kLines);
  EXPECT_EQ(phone.log.messages("YMSCBCharacteristic"), kLines);

  bind();
  peripheral->setCbPeripheral(nullptr);
  requestAll(control);
  EXPECT_EQ(warnings(), kLines);

  peripheral->setCbPeripheral(device);
  phone.log.clear();
  control->writeValue({}, noting(journal, "write"));
  EXPECT_EQ(warnings(), Journal{kNull}) << "nothing to write";

  central->removeAllPeripherals();
  peripheral = nullptr;  // the device object is gone, its characteristic is not
  requestAll(control);
  EXPECT_EQ(warnings(), kLines);
  EXPECT_TRUE(journal.empty());
}

TEST_F(YMSCBCharacteristicTest, OneNotificationRequestIsPendingAtATime) {
  bind();
  measurement->setNotifyValue(true, noting(journal, "replaced"));
  measurement->setNotifyValue(false, noting(journal, "second"));
  measurement->setNotifyValue(true, nullptr);  // leaves the second one pending
  EXPECT_EQ(device->journal, (Journal{"notify 2a37", "quiet 2a37", "notify 2a37"}));
  measurement->executeNotificationStateCallback(kFailure);
  measurement->executeNotificationStateCallback(kNoError);
  EXPECT_EQ(journal, Journal{"second error 6"});

  // One from inside its callback is sent all the same, and loses its own callback.
  measurement->setNotifyValue(true, [&](const ErrorOrNone&) {
    measurement->setNotifyValue(false, noting(journal, "inner"));
  });
  measurement->executeNotificationStateCallback(kNoError);
  EXPECT_EQ(device->journal.back(), "quiet 2a37");
  EXPECT_FALSE(measurement->notificationStateCallback());

  // A second answer from inside it finds the callback pending and taken.
  measurement->setNotifyValue(
      true, [&](const ErrorOrNone&) { measurement->executeNotificationStateCallback(kNoError); });
  EXPECT_DEATH(measurement->executeNotificationStateCallback(kNoError),
               "ERROR: notificationStateCallback is nil; please check for multi-threaded access "
               "of executeNotificationStateCallback\n");
}

TEST_F(YMSCBCharacteristicTest, OnlyReadsWhileNotifyingAreKeptToTheLatestSixteen) {
  bind();
  for (const bool notifies : {false, true}) {
    SCOPED_TRACE(notifies);
    journal.clear();
    deviceMeasurement->notifies = notifies;
    for (int i = 1; i <= 17; ++i) {
      measurement->readValueWithBlock(notingRead(journal, std::to_string(i)));
    }
    EXPECT_EQ(measurement->readCallbacks().count(), notifies ? 16U : 17U);
    deviceMeasurement->notifies = false;
    for (int i = 1; i <= 17; ++i) {
      measurement->executeReadCallback(Bytes{9}, kNoError);
    }
    EXPECT_EQ(journal.front(), notifies ? "2 09 ok" : "1 09 ok");
    EXPECT_EQ(journal.back(), "17 09 ok");
  }
  EXPECT_EQ(device->journal.size(), 34U) << "every read is sent";
}

TEST_F(YMSCBCharacteristicTest, ACallbackMayDropTheLastReferenceToEverything) {
  bind();
  std::weak_ptr<YMSCBCharacteristic> alive = measurement;
  const auto dropAll = [&](const ErrorOrNone&) {
    central->removeAllPeripherals();
    peripheral = nullptr;
    service = nullptr;
    control = nullptr;
    measurement = nullptr;
  };
  measurement->setNotifyValue(true, dropAll);
  measurement->executeNotificationStateCallback(kNoError);
  EXPECT_TRUE(alive.expired());
}

TEST_F(YMSCBCharacteristicTest, DescriptorsFollowTheirDiscovery) {
  std::size_t found = 99;
  const auto count = [&](const auto& descriptors, const ErrorOrNone& error) {
    found = error ? 1000 : descriptors.size();
  };
  measurement->discoverDescriptorsWithBlock(count);
  EXPECT_EQ(warnings(), Journal{"WARNING: Attempt to discover descriptors with null "
                                "cbCharacteristic: 'measurement' for 2a37"});
  EXPECT_TRUE(device->journal.empty());

  bind();
  measurement->discoverDescriptorsWithBlock(count);
  EXPECT_EQ(device->journal, Journal{"discoverDescriptors of 2a37"});
  measurement->syncDescriptors(
      {std::make_shared<FakeDescriptor>("2902"), std::make_shared<FakeDescriptor>("2901")});
  measurement->handleDiscoveredDescriptorsResponse(measurement->descriptors(), kNoError);
  ASSERT_EQ(found, 2U);
  EXPECT_EQ(measurement->descriptors()[0]->UUID(), uuid("2902"));
  EXPECT_EQ(measurement->descriptors()[1]->parent(), peripheral);
  EXPECT_DEATH(measurement->handleDiscoveredDescriptorsResponse({}, kNoError),
               "ERROR: discoverDescriptorsCallback is nil; please check for multi-threaded access "
               "of handleDiscoveredDescriptorsResponse")
      << "nobody asked for them";

  measurement->syncDescriptors({});
  EXPECT_TRUE(measurement->descriptors().empty()) << "replaced, not added to";
}

TEST_F(YMSCBCharacteristicTest, ADescriptorHasNoQueuesOfItsOwn) {
  bind();
  measurement->syncDescriptors({std::make_shared<FakeDescriptor>("2902")});
  const auto descriptor = measurement->descriptors()[0];
  descriptor->readValueWithBlock(notingRead(journal, "lost"));
  descriptor->writeByte(1, noting(journal, "lost"));
  EXPECT_EQ(device->journal, (Journal{"readDescriptor 2902", "writeDescriptor 2902 01"}));
  descriptor->executeReadCallback(Bytes{1}, kNoError);
  descriptor->executeWriteCallback(kNoError);
  EXPECT_TRUE(journal.empty());

  descriptor->setReadCallbacks(FifoQueue<ReadCallback>());
  descriptor->setWriteCallbacks(FifoQueue<ErrorCallback>());
  descriptor->readValueWithBlock(notingRead(journal, "first"));
  descriptor->readValueWithBlock(notingRead(journal, "second"));
  descriptor->writeValue({1, 2}, noting(journal, "write"));
  descriptor->executeReadCallback(Bytes{1}, kNoError);
  descriptor->executeReadCallback(std::nullopt, kFailure);
  descriptor->executeReadCallback(std::nullopt, kFailure);
  descriptor->executeWriteCallback(kFailure);
  descriptor->executeWriteCallback(kFailure);
  EXPECT_EQ(journal, (Journal{"first 01 ok", "second none error 6", "write error 6"}));

  // An empty one reads and writes nothing.
  YMSCBDescriptor empty;
  empty.readValueWithBlock(nullptr);
  empty.setParent(peripheral);
  empty.writeByte(1, nullptr);
  EXPECT_EQ(empty.UUID(), std::nullopt);
  EXPECT_EQ(device->journal.size(), 5U);
}

}  // namespace
}  // namespace wrixel2::bleobjects
