#include <algorithm>
#include <limits>

#include "platform/Utf8.h"
#include "platform/linux/BusValues.h"
#include "tests/platform/linux/BusTest.h"

namespace wrixel2::platform::linux {
namespace {

class BusValuesTest : public BusTest {
 protected:
  BusMessage newMessage() {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_signal(own->get(), &message, "/a", "a.b", "C");
    return BusMessage::adopting(message);
  }
  static Result<Array> sealedAndRead(const BusMessage& message) {
    sd_bus_message_seal(message.get(), 1, 0);
    return message.arguments();
  }
};

TEST_F(BusValuesTest, EveryTypeReadsAsTheValueThatStandsForIt) {
  auto basic = newMessage();
  const std::uint64_t large = std::numeric_limits<std::uint64_t>::max();
  ASSERT_GE(sd_bus_message_append(basic.get(), "ybnqiuxtdsogh", 200, 1, -2, 65535, -3, 4000000000U,
                                  std::int64_t{-5}, large, 0.5, "text", "/o", "a{sv}", 0),
            0);
  const Array expected = {200, true,   -2,   65535,   -3, 4000000000LL, -5, -1,
                          0.5, "text", "/o", "a{sv}", -1};
  EXPECT_EQ(*sealedAndRead(basic), expected);

  auto containers = newMessage();
  ASSERT_GE(sd_bus_message_append(containers.get(), "a{ss}a{qv}(si)aiasv", 1, "k", "v", 1, 0x157,
                                  "ay", 2, 1, 2, "in", 7, 2, 8, 9, 0, "s", "inner"),
            0);
  const auto read = *sealedAndRead(containers);
  ASSERT_EQ(read.size(), 6U);
  EXPECT_EQ(read[0], Value(Dictionary{{"k", "v"}}));
  EXPECT_EQ(read[1], Value(Dictionary{{"343", Bytes{1, 2}}}));
  const Value others[] = {Array{"in", 7}, Array{8, 9}, Array{}, "inner"};
  EXPECT_TRUE(std::equal(read.begin() + 2, read.end(), others));
}

TEST_F(BusValuesTest, WithinBoundsTextsAreCutAndABadOneEndsTheReading) {
  const auto boundedly = [](const BusMessage& message, Array& values) {
    sd_bus_message_seal(message.get(), 1, 0);
    return message.readBoundedArguments(values);
  };
  const std::string text = std::string(kLongestText - 1, 'a') + "\u20AC";
  const std::string cut(kLongestText - 1, 'a');
  auto large = newMessage();
  ASSERT_FALSE(large.append("sa{sv}", {text, Dictionary{{text, text}, {"d", Bytes(5000, 1)}}}));
  Array values;
  EXPECT_FALSE(boundedly(large, values));
  EXPECT_EQ(values, (Array{cut, Dictionary{{cut, cut}, {"d", Bytes(kLongestText, 1)}}}));
  auto many = newMessage();
  ASSERT_EQ(many.append("as", Array{Value(Array(300, std::string(5000, 'a')))}), std::nullopt);
  values.clear();
  EXPECT_FALSE(boundedly(many, values));
  const Array& texts = *values[0].array();
  EXPECT_EQ(texts[kMaximumBoundedBytes / kLongestText - 1].text()->size(), kLongestText);
  EXPECT_EQ(texts[299], "");

  // The bus lets noncharacters through, so one is put where libsystemd would not.
  auto bad = newMessage();
  ASSERT_FALSE(bad.append("sa{sv}i", {"a", Dictionary{{"k", 7}, {"l", "???"}, {"m", 8}}, 9}));
  ASSERT_TRUE(sealedAndRead(bad));
  sd_bus_message_rewind(bad.get(), 1);
  const char* inside = nullptr;
  sd_bus_message_skip(bad.get(), "s");
  sd_bus_message_enter_container(bad.get(), 'a', "{sv}");
  sd_bus_message_skip(bad.get(), "{sv}");
  sd_bus_message_enter_container(bad.get(), 'e', "sv");
  sd_bus_message_skip(bad.get(), "s");
  ASSERT_GT(sd_bus_message_read(bad.get(), "v", "s", &inside), 0);
  std::ranges::copy(std::string_view("\uFFFE"), const_cast<char*>(inside));
  EXPECT_FALSE(bad.arguments());
  values.clear();
  EXPECT_TRUE(bad.readBoundedArguments(values));
  EXPECT_EQ(values, (Array{"a", Dictionary{{"k", 7}, {"l", "\uFFFD"}}}));
}

TEST_F(BusValuesTest, ValuesGoIntoVariantsByTheirKindAndComeBack) {
  const Date date(std::chrono::microseconds(-1'500'000));
  const Dictionary nested = {{"list", Array{1, Dictionary{{"deep", true}}}}};
  const struct {
    Value value;
    const char* type;
    Value read;
  } cases[] = {{true, "b", true},
               {-7, "i", -7},
               {2147483647, "i", 2147483647},
               {2147483648LL, "x", 2147483648LL},
               {-2147483649LL, "x", -2147483649LL},
               {0.25, "d", 0.25},
               {"text", "s", "text"},
               {std::string("a\0b\xFF\xED\xA0\x80z", 8), "s", "a\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFDz"},
               {"\xF0\x9F\x98\x80", "s", "\xF0\x9F\x98\x80"},
               {"\xEF\xBF\xBE", "s", "\uFFFD"},
               {"cut \xF0\x9F\x98", "s", "cut \uFFFD"},
               {Bytes{1, 2}, "ay", Bytes{1, 2}},
               {Bytes{}, "ay", Bytes{}},
               {date, "x", -2},
               {Array{1, "a"}, "av", Array{1, "a"}},
               {nested, "a{sv}", nested}};
  for (const auto& item : cases) {
    SCOPED_TRACE(item.type);
    auto message = newMessage();
    ASSERT_FALSE(message.append("v", {item.value}));
    sd_bus_message_seal(message.get(), 1, 0);
    sd_bus_message_rewind(message.get(), 1);
    const char* contents = nullptr;
    sd_bus_message_peek_type(message.get(), nullptr, &contents);
    EXPECT_STREQ(contents, item.type);
    const auto values = message.arguments();
    ASSERT_TRUE(values);
    EXPECT_EQ(*values, Array{item.read});
  }
}

TEST_F(BusValuesTest, TypedArgumentsRoundTripAndWhatDoesNotFitIsRefused) {
  const Array list = {"a", "b"};
  const Array pairs = {Value(Array{"x", 1})};
  const Dictionary companies = {{"343", Bytes{1}}};
  const Array values = {255, -32768, Bytes{9}, companies, list, pairs, 3.0};
  auto message = newMessage();
  ASSERT_FALSE(message.append("ynaya{qv}asa(si)d", values));
  const auto read = sealedAndRead(message);
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, values);

  const std::pair<const char*, Array> unfit[] = {{"y", {256, -1}},
                                                 {"n", {40000}},
                                                 {"i", {2147483648LL, "1"}},
                                                 {"u", {-1}},
                                                 {"s", {1}},
                                                 {"b", {1}},
                                                 {"d", {"0.5"}},
                                                 {"as", {"a", Value(Array{1})}},
                                                 {"a{sv}", {Value(Array{})}},
                                                 {"(si)", {"a", Value(Array{"a"})}},
                                                 {"o", {"no path"}},
                                                 {"h", {3}},
                                                 {"(s", {Value(Array{"a"})}},
                                                 {"a", {Value(Array{})}},
                                                 {"z", {1}},
                                                 {"ss", {"only one"}}};
  for (const auto& [signature, alone] : unfit) {
    for (const auto& value : alone) {
      EXPECT_TRUE(newMessage().append(signature, {value})) << signature;
    }
  }
  EXPECT_TRUE(newMessage().append("s", {"one", "too many"}));
}

TEST_F(BusValuesTest, NestingAndTheNumberOfValuesAreBounded) {
  const auto nested = [](int depth) {
    Value value = "core";
    for (int level = 0; level < depth; ++level) {
      value = Array{value};
    }
    return value;
  };
  // An array in a variant takes two levels.
  EXPECT_FALSE(newMessage().append("v", {nested(kMaximumBusDepth / 2 - 1)}));
  EXPECT_TRUE(newMessage().append("v", {nested(kMaximumBusDepth / 2)}));
  auto deep = newMessage();
  for (int level = 0; level <= kMaximumBusDepth; ++level) {
    sd_bus_message_open_container(deep.get(), 'v', level < kMaximumBusDepth ? "v" : "s");
  }
  sd_bus_message_append(deep.get(), "s", "core");
  for (int level = 0; level <= kMaximumBusDepth; ++level) {
    sd_bus_message_close_container(deep.get());
  }
  const auto values = sealedAndRead(deep);
  ASSERT_FALSE(values);
  EXPECT_EQ(values.error().code, EMSGSIZE);

  auto many = newMessage();
  const std::vector<std::int16_t> numbers(kMaximumBusValues + 1);
  sd_bus_message_append_array(many.get(), 'n', numbers.data(), numbers.size() * 2);
  EXPECT_FALSE(sealedAndRead(many));
}

}  // namespace
}  // namespace wrixel2::platform::linux
