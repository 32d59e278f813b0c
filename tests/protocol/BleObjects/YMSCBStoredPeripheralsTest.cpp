#include <string>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedUserDefaults.h"
#include "protocol/BleObjects/YMSCBStoredPeripherals.h"

namespace wrixel2::bleobjects {
namespace {

using platform::Array;
using platform::UUID;
using platform::Value;

const std::string kKey = "storedPeripherals";
const std::string kFirst = "aaaaaaaa-0000-4000-8000-000000000001";
const std::string kSecond = "aaaaaaaa-0000-4000-8000-000000000002";

class YMSCBStoredPeripheralsTest : public testing::Test {
 protected:
  /// What a crash would leave.
  Value onDisk() const { return defaults.synchronizedValues().at(kKey); }

  platform::simulated::SimulatedUserDefaults defaults;
  YMSCBStoredPeripherals stored{defaults};
};

TEST_F(YMSCBStoredPeripheralsTest, StorageBeginsEmptyAndKeepsWhatIsThere) {
  EXPECT_TRUE(stored.genIdentifiers().empty());
  stored.initializeStorage();
  EXPECT_EQ(onDisk(), Value(Array{}));
  stored.saveUUID(UUID::withString(kFirst));
  stored.initializeStorage();
  EXPECT_EQ(onDisk(), Value(Array{kFirst}));

  // Anything that is no list is replaced by one.
  defaults.setObjectForKey(kKey, "text");
  stored.initializeStorage();
  EXPECT_EQ(onDisk(), Value(Array{}));
}

TEST_F(YMSCBStoredPeripheralsTest, EachDeviceIsStoredOnceInTheOrderFirstSeen) {
  stored.saveUUID(UUID::withString(kSecond));
  stored.saveUUID(UUID::withString(kFirst));
  stored.saveUUID(UUID::withString(kSecond));
  stored.saveUUID(UUID());
  EXPECT_EQ(onDisk(), Value(Array{kSecond, kFirst}));
  EXPECT_EQ(stored.genIdentifiers(),
            (std::vector<UUID>{UUID::withString(kSecond), UUID::withString(kFirst)}));
}

TEST_F(YMSCBStoredPeripheralsTest, DeletingRemovesEveryEqualEntry) {
  defaults.setObjectForKey(kKey, Array{kFirst, kSecond, kFirst, 5});
  stored.deleteUUID(UUID::withString(kFirst));
  EXPECT_EQ(onDisk(), Value(Array{kSecond, 5}));
  stored.deleteUUID(UUID::withString(kFirst));
  EXPECT_EQ(onDisk(), Value(Array{kSecond, 5}));
}

TEST_F(YMSCBStoredPeripheralsTest, WhatIsNoIdentifierIsSkipped) {
  defaults.setObjectForKey(
      kKey, Array{"nonsense", 7, kSecond, "", "180d", Array{kFirst},
                  "aaaaaaaa-0000-4000-8000-00000000000g", "AAAAAAAA-0000-4000-8000-000000000001"});
  EXPECT_EQ(stored.genIdentifiers(),
            (std::vector<UUID>{UUID::withString(kSecond), UUID::withString(kFirst)}));
  defaults.setObjectForKey(kKey, kFirst);
  EXPECT_TRUE(stored.genIdentifiers().empty());
}

}  // namespace
}  // namespace wrixel2::bleobjects
