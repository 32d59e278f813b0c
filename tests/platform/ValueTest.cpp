#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/Value.h"

namespace wrixel2::platform {
namespace {

TEST(Value, ReadsAnyKindAsABooleanOrAnInteger) {
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  const std::pair<bool, Array> booleans[] = {
      {true, {true, -3, 0x1'0000'0000, 0.5, 1e300, notANumber, "yes", "True", " \t+007abc", "-12"}},
      {false,
       {false, 0, "", "NO", "nonsense 1", "-000", "--1", Bytes{1}, Array{1}, Dictionary{{"a", 1}},
        Date{}}}};
  for (const auto& [expected, values] : booleans) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(values[i].boolValue(), expected) << "number " << i;
    }
  }
  const std::pair<std::int32_t, Array> integers[] = {
      {0, {false, 0, 0.5, notANumber, "", "yes", "NO", "nonsense 1", "-000", "--1"}},
      {0, {Bytes{1}, Array{1}, Dictionary{{"a", 1}}, Date{}}},
      {-3, {-3}},
      {2, {0x1'0000'0002, 2.9, "2", "2 apples", " \t+002abc"}},
      {-1, {0xFFFF'FFFF, 1e300, -1.5}},
      {-12, {"-12", -12.9}},
      {std::numeric_limits<std::int32_t>::max(), {"2147483647", "2147483648"}},
      {std::numeric_limits<std::int32_t>::min(), {"-2147483648", "-99999999999999999999"}}};
  for (const auto& [expected, values] : integers) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(values[i].intValue(), expected) << "number " << i << " of those for " << expected;
    }
  }
  EXPECT_EQ(Value(true).intValue(), 1);
}

TEST(Value, LongTextsAreHeldToTheirOwnRange) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const Value& most :
       {Value("9223372036854775807"), Value("9223372036854775808"), Value(1e19)}) {
    EXPECT_EQ(most.longValue(), Limits::max());
  }
  EXPECT_EQ(Value("-9223372036854775808").longValue(), Limits::min());
}

TEST(Value, AbsentKeysReadAsNothing) {
  const Dictionary dictionary = {{"number", 7}, {"text", "8"}};
  EXPECT_EQ(intForKey(dictionary, "number"), 7);
  EXPECT_EQ(intForKey(dictionary, "text"), 8);
  EXPECT_EQ(intForKey(dictionary, "absent"), 0);
  EXPECT_FALSE(boolForKey(dictionary, "absent"));
  EXPECT_EQ(textForKey(dictionary, "text"), "8");
  EXPECT_FALSE(textForKey(dictionary, "number"));
  EXPECT_FALSE(textForKey(dictionary, "absent"));
}

}  // namespace
}  // namespace wrixel2::platform
