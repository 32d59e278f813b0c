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
const std::string kThird = "aaaaaaaa-0000-4000-8000-000000000003";

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
  for (const auto& seen : {kSecond, kFirst, kSecond, std::string()}) {
    stored.saveUUID(UUID::withString(seen));
  }
  stored.initializeStorage();
  EXPECT_EQ(onDisk(), Value(Array{kSecond, kFirst})) << "each once, in the order first seen";

  // Anything that is no list is replaced by one.
  defaults.setObjectForKey(kKey, "text");
  EXPECT_TRUE(stored.genIdentifiers().empty());
  stored.initializeStorage();
  EXPECT_EQ(onDisk(), Value(Array{}));
}

TEST_F(YMSCBStoredPeripheralsTest, WhatIsNoIdentifierIsSkippedButStays) {
  defaults.setObjectForKey(
      kKey, Array{"nonsense", 7, kSecond, "", "180d", Array{kFirst},
                  "aaaaaaaa-0000-4000-8000-00000000000g", "AAAAAAAA-0000-4000-8000-000000000001"});
  EXPECT_EQ(stored.genIdentifiers(),
            (std::vector<UUID>{UUID::withString(kSecond), UUID::withString(kFirst)}));

  defaults.setObjectForKey(kKey, Array{kFirst, kSecond, kFirst, 5});
  stored.deleteUUID(UUID::withString(kFirst));
  EXPECT_EQ(onDisk(), Value(Array{kSecond, 5})) << "every equal entry goes";
}

TEST_F(YMSCBStoredPeripheralsTest, AnotherListMayBeBounded) {
  YMSCBStoredPeripherals two(defaults, "other", 2);
  for (const auto& served : {kThird, kSecond, kThird, kFirst}) {
    two.saveUUID(UUID::withString(served));
  }
  EXPECT_EQ(defaults.synchronizedValues().at("other"), Value(Array{kThird, kFirst}))
      << "of which one is in daily use";
  EXPECT_EQ(defaults.objectForKey(kKey), std::nullopt);
}

}  // namespace
}  // namespace wrixel2::bleobjects
