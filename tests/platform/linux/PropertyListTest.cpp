#include <gtest/gtest.h>

#include "platform/linux/BinaryPropertyList.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/PropertyListUserDefaults.h"
#include "platform/linux/XmlPropertyList.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

Bytes bytesFrom(std::initializer_list<std::string_view> parts) {
  Bytes bytes;
  for (const auto part : parts) {
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  return bytes;
}

// A binary file of the objects given as bytes, with one-byte offsets and references; the first is
// the root.
Bytes binaryFile(const std::vector<Bytes>& objects) {
  Bytes file = bytesOfText("bplist00");
  Bytes offsets;
  for (const auto& object : objects) {
    offsets.push_back(static_cast<std::uint8_t>(file.size()));
    file.insert(file.end(), object.begin(), object.end());
  }
  const auto table = static_cast<std::uint8_t>(file.size());
  file.insert(file.end(), offsets.begin(), offsets.end());
  Bytes trailer(32);
  trailer[6] = 1;
  trailer[7] = 1;
  trailer[15] = static_cast<std::uint8_t>(objects.size());
  trailer[31] = table;
  file.insert(file.end(), trailer.begin(), trailer.end());
  return file;
}

std::string document(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Example//DTD "
         "PLIST 1.0//EN\" \"http://www.example.org/PropertyList-1.0.dtd\">\n<plist "
         "version=\"1.0\">" +
         std::string(content) + "</plist>\n";
}

class PropertyListTest : public testing::Test {
 protected:
  Dictionary everyKind() const {
    return {{"boolean", true},
            {"off", false},
            {"integer", 7},
            {"negative", -7},
            {"large", 1LL << 40},
            {"most", std::numeric_limits<std::int64_t>::max()},
            {"least", std::numeric_limits<std::int64_t>::min()},
            {"real", 0.5},
            {"text", "caf\xC3\xA9 <&> \xF0\x9F\x98\x80"},
            {"blank", " a\nb "},
            {"empty", ""},
            {"data", Bytes{0, 1, 2, 255}},
            {"nodata", Bytes{}},
            {"date", Date(std::chrono::seconds(1'772'348'645))},
            {"old", Date(std::chrono::seconds(-86'400))},
            {"array", Array{1, "two", Array{}, Dictionary{}}},
            {"dictionary", Dictionary{{"inner", Dictionary{{"key", "value"}}}}},
            {"", "an empty key"}};
  }

  Dictionary rewritten(const std::string& path) {
    EXPECT_FALSE(lists.writeToFileAtomically(path, everyKind()));
    const auto read = lists.dictionaryWithContentsOfFile(path);
    EXPECT_TRUE(read) << (read ? "" : read.error().localizedDescription);
    return read ? *read : Dictionary();
  }

  TemporaryDirectory directory;
  LinuxFileManager files;
  LinuxPropertyLists lists{files};
  RecordingLog log;
};

TEST_F(PropertyListTest, EveryKindSurvivesInTheFormThatTheFileHas) {
  const std::string path = directory.path("new.plist");
  EXPECT_EQ(rewritten(path), everyKind());
  EXPECT_FALSE(isBinaryPropertyList(*files.contentsAtPath(path)));

  const Bytes empty = binaryFile({{0xD0}});
  ASSERT_FALSE(files.writeAtomically(path, empty));
  EXPECT_EQ(rewritten(path), everyKind());
  EXPECT_TRUE(isBinaryPropertyList(*files.contentsAtPath(path)));
}

TEST_F(PropertyListTest, AFileCutShortIsAnErrorWhereverItIsCut) {
  const std::string path = directory.path("file.plist");
  for (const Bytes& start : {Bytes(), binaryFile({{0xD0}})}) {
    ASSERT_FALSE(files.writeAtomically(path, start));
    ASSERT_FALSE(lists.writeToFileAtomically(path, everyKind()));
    const auto whole = *files.contentsAtPath(path);
    const std::size_t end = isBinaryPropertyList(whole) ? whole.size() : whole.size() - 1;
    for (std::size_t size = 0; size < end; ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      const auto value =
          isBinaryPropertyList(cut)
              ? valueFromBinaryPropertyList(cut)
              : valueFromXmlPropertyList({reinterpret_cast<const char*>(cut.data()), cut.size()});
      ASSERT_FALSE(value) << size;
    }
    // A byte turned over must not crash, whatever is read.
    for (std::size_t index = 0; index < whole.size(); ++index) {
      for (const int bits : {0xFF, 0x01}) {
        Bytes changed = whole;
        changed[index] = static_cast<std::uint8_t>(changed[index] ^ bits);
        if (isBinaryPropertyList(changed)) {
          (void)valueFromBinaryPropertyList(changed);
        } else {
          (void)valueFromXmlPropertyList(
              {reinterpret_cast<const char*>(changed.data()), changed.size()});
        }
      }
    }
  }
}

TEST_F(PropertyListTest, XmlIsTakenStrictly) {
  struct Case {
    const char* content;
    std::optional<Value> value;
  };
  const Case cases[] = {
      {"<string>a &amp;&lt;&gt;&quot;&apos;&#65;&#x42;<![CDATA[<&]]></string>",
       Value("a &<>\"'AB<&")},
      {"<string>a<!-- no -->b</string>", Value("ab")},
      {"<!-- c --> <string/> <?pi?>", Value("")},
      {"<integer> -0x10 </integer>", Value(-16)},
      {"<integer>18446744073709551615</integer>", Value(-1)},
      {"<integer>18446744073709551616</integer>", std::nullopt},
      {"<integer>-9223372036854775809</integer>", std::nullopt},
      {"<integer>seven</integer>", std::nullopt},
      {"<integer></integer>", std::nullopt},
      {"<real>1e3</real>", Value(1000.0)},
      {"<real>1,5</real>", std::nullopt},
      {"<data> AQ ID\nBA== </data>", Value(Bytes{1, 2, 3, 4})},
      {"<data>A===</data>", std::nullopt},
      {"<data>AQI</data>", std::nullopt},
      {"<data>A=QI</data>", std::nullopt},
      {"<data>A*==</data>", std::nullopt},
      {"<date>2026-02-29T00:00:00Z</date>", std::nullopt},
      {"<date>2026-03-01 07:04:05</date>", std::nullopt},
      {"<true/>", Value(true)},
      {"<false></false>", Value(false)},
      {"<true>yes</true>", std::nullopt},
      {"<array><true/> <integer>1</integer></array>", Value(Array{true, 1})},
      {"<dict><key>a</key><true/><key>a</key><false/></dict>", Value(Dictionary{{"a", false}})},
      {"<dict><key>a</key></dict>", std::nullopt},
      {"<dict><true/></dict>", std::nullopt},
      {"<key>a</key>", std::nullopt},
      {"<array><true/></dict>", std::nullopt},
      {"<array>text</array>", std::nullopt},
      {"<set><true/></set>", std::nullopt},
      {"<string>a</string><string>b</string>", std::nullopt},
      {"", std::nullopt},
      {"<string>&unknown;</string>", std::nullopt},
      {"<string>&#0;</string>", std::nullopt},
      {"<string>&#xD800;</string>", std::nullopt},
      {"<string>&amp</string>", std::nullopt},
      {"<string>\xFF</string>", std::nullopt}};
  for (const auto& item : cases) {
    const auto value = valueFromXmlPropertyList(document(item.content));
    ASSERT_EQ(static_cast<bool>(value), item.value.has_value()) << item.content;
    if (value) {
      EXPECT_EQ(*value, *item.value) << item.content;
    }
  }
  for (const std::string& text :
       {std::string("<array/>"), document("<true/>") + "<plist/>", std::string("text"),
        std::string("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>"),
        std::string("<plist><array><string>a</string", 31)}) {
    EXPECT_FALSE(valueFromXmlPropertyList(text)) << text;
  }
  EXPECT_EQ(valueFromXmlPropertyList("<plist>\n\n<integer>x</integer></plist>")
                .error()
                .localizedDescription,
            "line 3: this is not a integer");
}

TEST_F(PropertyListTest, BinaryObjectsAreReadOrRefused) {
  struct Case {
    const char* name;
    std::vector<Bytes> objects;
    std::optional<Value> value;
  };
  const std::string nul("a\0b", 3);
  const Case cases[] = {
      {"integer of 1 byte is unsigned", {{0x10, 0xFF}}, Value(255)},
      {"integer of 8 bytes is signed", {bytesFrom({"\x13", std::string(8, '\xFF')})}, Value(-1)},
      {"integer of 16 bytes", {bytesFrom({"\x14", std::string(15, '\0'), "\x05"})}, Value(5)},
      {"float", {{0x22, 0x3F, 0, 0, 0}}, Value(0.5)},
      {"date",
       {{0x33, 0x41, 0x00, 0, 0, 0, 0, 0, 0}},
       Value(Date(std::chrono::seconds(978'307'200 + 131'072)))},
      {"date that is no number", {{0x33, 0x7F, 0xF8, 0, 0, 0, 0, 0, 1}}, std::nullopt},
      {"text with a NUL", {bytesFrom({"\x53", nul})}, Value(nul)},
      {"UTF-16 text with a NUL", {{0x62, 0, 'a', 0, 0}}, Value(std::string("a\0", 2))},
      {"surrogate pair", {{0x62, 0xD8, 0x3D, 0xDE, 0x00}}, Value("\xF0\x9F\x98\x80")},
      {"half a surrogate pair", {{0x62, 0xD8, 0x3D, 0, 'a'}}, Value("\uFFFDa")},
      {"text that is not ASCII", {{0x51, 0xE9}}, std::nullopt},
      {"key with a NUL",
       {{0xD1, 1, 2}, bytesFrom({"\x53", nul}), {0x09}},
       Value(Dictionary{{nul, true}})},
      {"key that is a number", {{0xD1, 1, 1}, {0x10, 1}}, std::nullopt},
      {"length in an integer", {bytesFrom({"\x4F\x10\x02", "xy"})}, Value(bytesOfText("xy"))},
      {"length beyond the file",
       {{0x4F, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
       std::nullopt},
      {"array beyond the file",
       {{0xAF, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
       std::nullopt},
      {"length that is a text", {{0x4F, 0x51, 'a'}}, std::nullopt},
      {"reference beyond the table", {{0xA1, 9}}, std::nullopt},
      {"array within itself", {{0xA1, 0}}, std::nullopt},
      {"dictionary within itself", {{0xD1, 1, 0}, {0x51, 'k'}}, std::nullopt},
      {"null", {{0x00}}, std::nullopt},
      {"UID", {{0x80, 1}}, std::nullopt},
      {"set", {{0xC0}}, std::nullopt},
      {"integer of 32 bytes", {bytesFrom({"\x15", std::string(32, '\0')})}, std::nullopt}};
  for (const auto& item : cases) {
    const auto value = valueFromBinaryPropertyList(binaryFile(item.objects));
    ASSERT_EQ(static_cast<bool>(value), item.value.has_value()) << item.name;
    if (value) {
      EXPECT_EQ(*value, *item.value) << item.name;
    }
  }
}

TEST_F(PropertyListTest, FilesThatWouldNotFitIntoMemoryAreRefused) {
  // Each array refers to the next ten times: 10^20 values in 300 bytes.
  std::vector<Bytes> bomb;
  for (std::uint8_t level = 1; level <= 20; ++level) {
    bomb.push_back(Bytes{0xAA});
    bomb.back().insert(bomb.back().end(), 10, level);
  }
  bomb.push_back({0x09});
  EXPECT_FALSE(valueFromBinaryPropertyList(binaryFile(bomb)));

  std::vector<Bytes> chain;
  for (std::uint8_t level = 1; level <= 40; ++level) {
    chain.push_back({0xA1, level});
  }
  chain.push_back({0x09});
  EXPECT_FALSE(valueFromBinaryPropertyList(binaryFile(chain)));

  const auto nested = [](std::size_t depth) {
    std::string text;
    for (std::size_t level = 0; level < depth; ++level) {
      text.insert(0, "<array>").append("</array>");
    }
    return document(text);
  };
  EXPECT_TRUE(valueFromXmlPropertyList(nested(33)));
  EXPECT_FALSE(valueFromXmlPropertyList(nested(34)));
  std::string many = "<array>";
  for (int count = 0; count < 60'000; ++count) {
    many += "<true/>";
  }
  EXPECT_FALSE(valueFromXmlPropertyList(document(many + "</array>")));
  const auto large = directory.write(
      "large.plist",
      document("<dict><key>a</key><string>" + std::string(1 << 20, 'x') + "</string></dict>"));
  EXPECT_FALSE(lists.dictionaryWithContentsOfFile(large));
}

TEST_F(PropertyListTest, WhatIsNoDictionaryOrCannotBeWrittenIsAnError) {
  const std::string path = directory.write("array.plist", document("<array/>"));
  const auto result = lists.dictionaryWithContentsOfFile(path);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().localizedDescription,
            path + " is not a readable property list: it holds a value of kind array");
  EXPECT_EQ(lists.dictionaryWithContentsOfFile(directory.path("none")).error().code, ENOENT);

  Value deep = 1;
  for (int level = 0; level < 40; ++level) {
    deep = Array{deep};
  }
  const Dictionary unwritable[] = {{{"nul", std::string("a\0b", 3)}},
                                   {{std::string("a\0b", 3), 1}},
                                   {{"bytes", "\xFF"}},
                                   {{"date", Date(std::chrono::hours(24 * 365 * 200))}},
                                   {{"deep", deep}}};
  for (const auto& dictionary : unwritable) {
    EXPECT_EQ(lists.writeToFileAtomically(path, dictionary)->code, EINVAL);
  }
  EXPECT_NE(files.contentsAtPath(path)->size(), 0U);
  EXPECT_FALSE(lists.dictionaryWithContentsOfFile(path)) << "the file is as it was";
}

TEST_F(PropertyListTest, UserDefaultsAreKept) {
  const std::string path = directory.path("state/defaults.plist");
  {
    PropertyListUserDefaults defaults(lists, files, log, path);
    EXPECT_EQ(defaults.objectForKey("storedPeripherals"), std::nullopt);
    defaults.setObjectForKey("storedPeripherals", Array{"a", "b"});
    defaults.synchronize();
  }
  PropertyListUserDefaults defaults(lists, files, log, path);
  EXPECT_EQ(defaults.arrayForKey("storedPeripherals"), (Array{"a", "b"}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(PropertyListTest, DamagedUserDefaultsAreKeptBeside) {
  const std::string path = directory.write("defaults.plist", "damaged now");
  directory.write("defaults.plist.damaged", "damaged before");
  PropertyListUserDefaults defaults(lists, files, log, path);
  EXPECT_EQ(log.count("WARN The user defaults start empty"), 1U);
  EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
  defaults.setObjectForKey("key", 1);
  defaults.synchronize();
  EXPECT_TRUE(lists.dictionaryWithContentsOfFile(path));
  EXPECT_EQ(files.contentsAtPath(path + ".damaged").value(), bytesOfText("damaged now"));

  const std::string unwritable = directory.write("file", "") + "/below.plist";
  PropertyListUserDefaults failing(lists, files, log, unwritable);
  failing.setObjectForKey("key", 1);
  failing.synchronize();
  EXPECT_EQ(log.count("WARN The user defaults are not written"), 1U);
}

}  // namespace
}  // namespace wrixel2::platform::linux
