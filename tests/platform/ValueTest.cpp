#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/Value.h"

namespace wrixel2::platform {
namespace {

TEST(Value, ReadsAnyKindAsABooleanOrAnInteger) {
  struct Case {
    Value value;
    bool asBool;
    std::int32_t asInt;
  };
  const Case cases[] = {
      {true, true, 1},
      {false, false, 0},
      {-3, true, -3},
      {0, false, 0},
      {std::int64_t{0x1'0000'0002}, true, 2},
      {std::int64_t{0xFFFF'FFFF}, true, -1},
      {0.5, true, 0},
      {-2.9, true, -2},
      {1e300, true, -1},
      {std::numeric_limits<double>::quiet_NaN(), true, 0},
      {"", false, 0},
      {"yes", true, 0},
      {"True", true, 0},
      {"NO", false, 0},
      {"nonsense 1", false, 0},
      {" \t+007abc", true, 7},
      {"-000", false, 0},
      {"-12", true, -12},
      {"--1", false, 0},
      {"2147483647", true, 2147483647},
      {"2147483648", true, 2147483647},
      {"-2147483648", true, std::numeric_limits<std::int32_t>::min()},
      {"-99999999999999999999", true, std::numeric_limits<std::int32_t>::min()},
      {"9 apples", true, 9},
      {Bytes{1}, false, 0},
      {Array{Value(1)}, false, 0},
      {Dictionary{{"a", 1}}, false, 0},
      {Date{}, false, 0},
  };
  for (const auto& [value, asBool, asInt] : cases) {
    SCOPED_TRACE(std::string(kindName(value)) + " " +
                 (value.text() != nullptr ? *value.text() : std::to_string(value.longValue())));
    EXPECT_EQ(value.boolValue(), asBool);
    EXPECT_EQ(value.intValue(), asInt);
  }
}

TEST(Value, LongTextsAreHeldToTheirOwnRange) {
  EXPECT_EQ(Value("9223372036854775807").longValue(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Value("9223372036854775808").longValue(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Value("-9223372036854775808").longValue(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Value(1e19).longValue(), std::numeric_limits<std::int64_t>::max());
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
