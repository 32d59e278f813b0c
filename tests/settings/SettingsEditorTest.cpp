#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedFileManager.h"
#include "settings/GlobalKeys.h"
#include "settings/SettingKeys.h"
#include "settings/SettingsEditor.h"
#include "settings/SettingsParser.h"

namespace wrixel2::settings {
namespace {

using platform::Value;

struct EditCase {
  std::string name;
  std::string before;
  KeyPath path;
  std::optional<Value> value;  ///< none removes the entry
  std::string after;
};

class SettingsEditorTest : public testing::TestWithParam<EditCase> {};

TEST_P(SettingsEditorTest, ChangesOneEntryAndNothingElse) {
  const EditCase& c = GetParam();
  auto editor = SettingsEditor::ofText("settings.toml", c.before);
  ASSERT_TRUE(editor) << editor.error().localizedDescription;
  const auto error = c.value ? editor->set(c.path, *c.value) : editor->unset(c.path);
  ASSERT_EQ(error, std::nullopt) << error->localizedDescription;
  EXPECT_EQ(editor->text(), c.after);
  const auto* entry = editor->find(c.path);
  EXPECT_EQ(entry != nullptr ? std::optional(entry->value) : std::nullopt, c.value);
}

const KeyPath kIcon = {"apps", "org.example.Chat", "icon"};
const KeyPath kTimeout = {"timeout"};

INSTANTIATE_TEST_SUITE_P(
    Texts, SettingsEditorTest,
    testing::Values(
        EditCase{"emptyFile", "", kTimeout, 30, "timeout = 30\n"},
        EditCase{"value", "# mine\ntimeout  =  15   # s\n\nmode = 1\n", kTimeout, 30,
                 "# mine\ntimeout  =  30   # s\n\nmode = 1\n"},
        EditCase{"valueBehindUmlauts",
                 "\"enabled\" = true # ä\n\"mode\" = 1 # ö",
                 {"mode"},
                 0,
                 "\"enabled\" = true # ä\n\"mode\" = 0 # ö"},
        EditCase{"byteOrderMark", "\xEF\xBB\xBFmode = 1\n", {"mode"}, 0, "\xEF\xBB\xBFmode = 0\n"},
        EditCase{"newBehindTheLast", "  mode = 1 # a\n\n# Chat\n[apps.Chat]\nicon = 9\n", kTimeout,
                 30, "  mode = 1 # a\n  timeout = 30\n\n# Chat\n[apps.Chat]\nicon = 9\n"},
        EditCase{"newBeforeTheFirstTable", "[apps.Chat]\nicon = 9\n", kTimeout, 30,
                 "timeout = 30\n\n[apps.Chat]\nicon = 9\n"},
        EditCase{"newBehindTheOpeningComment", "# My band\n\n# Chat\n[apps.Chat]\nicon = 9\n",
                 kTimeout, 30, "# My band\n\ntimeout = 30\n\n# Chat\n[apps.Chat]\nicon = 9\n"},
        EditCase{"onlyAComment", "# My band", kTimeout, 30, "# My band\ntimeout = 30\n"},
        EditCase{"lineEndsOfItsOwn",
                 "mode = 1\r\n\r\n[apps.Chat]\r\nicon = 9\r\n",
                 {"apps", "Chat", "repeat"},
                 2,
                 "mode = 1\r\n\r\n[apps.Chat]\r\nicon = 9\r\nrepeat = 2\r\n"},
        EditCase{"noFinalLineEnd", "mode = 1", kTimeout, 30, "mode = 1\ntimeout = 30\n"},
        EditCase{"newApp", "mode = 1", kIcon, 9,
                 "mode = 1\n\n[apps.\"org.example.Chat\"]\nicon = 9\n"},
        EditCase{"newAppWithQuotesInItsName",
                 "mode = 1\n\n",
                 {"apps", "a\"b\\c\t", "preview"},
                 true,
                 "mode = 1\n\n[apps.\"a\\\"b\\\\c\\u0009\"]\npreview = true\n"},
        EditCase{"appsOtherKey",
                 "[apps.\"org.example.Chat\"]\n# quiet\nrepeat = 1\n\n[apps.Mail]\n", kIcon, 9,
                 "[apps.\"org.example.Chat\"]\n# quiet\nrepeat = 1\nicon = 9\n\n[apps.Mail]\n"},
        EditCase{"emptyTable", "[ apps . 'org.example.Chat' ] # c\n\n[apps.Mail]\n", kIcon, 9,
                 "[ apps . 'org.example.Chat' ] # c\nicon = 9\n\n[apps.Mail]\n"},
        EditCase{"belowAppsHeader", "[apps]\nChat = { icon = 1 }\n", kIcon, 9,
                 "[apps]\nChat = { icon = 1 }\n\n[apps.\"org.example.Chat\"]\nicon = 9\n"},
        EditCase{"inlineTable",
                 "[apps]\nChat = { icon = 1, repeat=2 } # c\n",
                 {"apps", "Chat", "preview"},
                 true,
                 "[apps]\nChat = { icon = 1, repeat=2, preview = true } # c\n"},
        EditCase{"valueInInlineTable",
                 "[apps]\nChat = { icon = 1, repeat=2 }\n",
                 {"apps", "Chat", "icon"},
                 30,
                 "[apps]\nChat = { icon = 30, repeat=2 }\n"},
        EditCase{"inlineTableOfTables",
                 "apps = { }\n",
                 {"apps", "Chat", "icon"},
                 9,
                 "apps = { Chat.icon = 9 }\n"},
        EditCase{"dottedKeys",
                 "mode = 1\nbattery.alertBelow = 5\napps.Chat.icon = 1\n",
                 {"apps", "Chat", "repeat"},
                 1,
                 "mode = 1\nbattery.alertBelow = 5\napps.Chat.icon = 1\napps.Chat.repeat = 1\n"},
        EditCase{"dottedTableAbove",
                 "apps.Chat.icon = 1\n[battery]\n",
                 {"apps", "Mail", "icon"},
                 2,
                 "apps.Chat.icon = 1\napps.Mail.icon = 2\n[battery]\n"},
        EditCase{"companionsTable",
                 "[button]\nonce = [ # what\n  \"a\",\n  \"[b]\"\n]\n",
                 {"button", "twice"},
                 "hangUp",
                 "[button]\nonce = [ # what\n  \"a\",\n  \"[b]\"\n]\ntwice = \"hangUp\"\n"},
        EditCase{"valueOfManyLines",
                 "[button]\nonce = [ # what\n  \"a\",\n]\nwindow = 5\n",
                 {"button", "once"},
                 platform::Array{"x", "y z"},
                 "[button]\nonce = [\"x\", \"y z\"]\nwindow = 5\n"},
        EditCase{"removed",
                 "mode = 1\ntimeout = 5 # s\n# c\nenabled = true",
                 kTimeout,
                 {},
                 "mode = 1\n# c\nenabled = true"},
        EditCase{"removedWithAllItsLines",
                 "[button]\nonce = [\n\"a\"]\nwindow = 5\n",
                 {"button", "once"},
                 {},
                 "[button]\nwindow = 5\n"},
        EditCase{"removedFromInlineTable",
                 "[apps]\nA = { icon = 1, repeat = 2, pattern = 3 }\n",
                 {"apps", "A", "icon"},
                 {},
                 "[apps]\nA = { repeat = 2, pattern = 3 }\n"},
        EditCase{"removedLastOfInlineTable",
                 "[apps]\nA = { icon = 1, repeat = 2 }\n",
                 {"apps", "A", "repeat"},
                 {},
                 "[apps]\nA = { icon = 1 }\n"},
        EditCase{"removedDotted",
                 "apps.A.icon = 1\napps.A.repeat = 2",
                 {"apps", "A", "repeat"},
                 {},
                 "apps.A.icon = 1\n"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(SettingsEditorRefusalTest, WhatCannotBeDoneLeavesTheText) {
  const struct {
    const char* what;
    std::string before;
    KeyPath path;
    std::optional<Value> value;
    std::string inMessage;
  } kCases[] = {
      {"nothing to remove", "mode = 1\n", kTimeout, {}, "does not set timeout"},
      {"dotted in an inline table", "apps = { A.icon = 1 }\n", {"apps", "A", "icon"}, {}, "header"},
      {"a value of a wrong kind", "mode = 1\n", kTimeout, "soon", "timeout is a text"},
      {"a table of that name", "[battery]\n", {"battery"}, 1, "text editor"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    auto editor = SettingsEditor::ofText("settings.toml", c.before);
    ASSERT_TRUE(editor);
    const auto error = c.value ? editor->set(c.path, *c.value) : editor->unset(c.path);
    ASSERT_TRUE(error);
    EXPECT_NE(error->localizedDescription.find(c.inMessage), std::string::npos)
        << error->localizedDescription;
    EXPECT_EQ(editor->text(), c.before);
  }
}

TEST(SettingsEditorFileTest, AFileWithErrorsIsNotEdited) {
  platform::simulated::SimulatedFileManager files;
  files.addFile("/home/settings.toml", "enabled = true\nmode = \"x\"\n");
  const auto wrong = SettingsEditor::open(files, "/home/settings.toml");
  ASSERT_FALSE(wrong);
  EXPECT_TRUE(wrong.error().localizedDescription.starts_with("/home/settings.toml:2: mode is"));
  EXPECT_TRUE(wrong.error().localizedDescription.ends_with("; mend that first"));

  files.setIsReadable("/home/settings.toml", false);
  EXPECT_FALSE(SettingsEditor::open(files, "/home/settings.toml"));

  auto fresh = SettingsEditor::open(files, "/home/new/settings.toml");
  ASSERT_TRUE(fresh);
  ASSERT_EQ(fresh->set(kIcon, 9), std::nullopt);
  ASSERT_EQ(fresh->save(files), std::nullopt);
  EXPECT_EQ(files.textAtPath("/home/new/settings.toml"), "[apps.\"org.example.Chat\"]\nicon = 9\n");
  EXPECT_EQ(fresh->settings().apps.at("org.example.Chat").icon, 9);
}

TEST(SettingKeysTest, EveryKeyThatAFileMayHoldIsKnownWithAValueThatHolds) {
  std::set<std::string_view> globals;
  std::string text;
  for (const SettingKey& key : settingKeys()) {
    const auto named = settingNamed(key.name);
    ASSERT_TRUE(named) << key.name;
    if (named->path.size() == 1) {
      globals.insert(key.name);
    }
    text = std::string(tomlPath(named->path)).append(" = ").append(key.standard) + "\n" + text;
  }
  for (const GlobalKey& key : kGlobalKeys) {
    EXPECT_EQ(globals.count(key.name), 1U) << key.name;
  }
  EXPECT_EQ(globals.size(), kGlobalKeys.size());
  const ParsedSettings parsed = parseSettings(text);
  EXPECT_TRUE(parsed.errors.empty()) << parsed.errors.front().message;
  EXPECT_TRUE(parsed.warnings.empty()) << parsed.warnings.front().message;
  EXPECT_EQ(parsed.settings.companion, CompanionSettings{}) << "a default is told wrong";
}

TEST(SettingKeysTest, WordsOfACommandLineBecomeValuesOrAHelpfulError) {
  const struct {
    const char* key;
    std::vector<std::string> words;
    std::string expected;  ///< as in the file; else a part of the error
  } kCases[] = {
      {"enabled", {"on"}, "true"},
      {"enabled", {"no"}, "false"},
      {"enabled", {"1"}, "enabled has to be true or false (on or off), not \"1\""},
      {"timeout", {"2147483647"}, "2147483647"},
      {"timeout", {"2147483648"}, "a whole number from 0 on"},
      {"timeout", {"5s"}, "not \"5s\""},
      {"timeout", {"5", "6"}, "takes one value"},
      {"timeout", {}, "needs a value"},
      {"startSteps", {"24"}, "a whole number from 0 to 23"},
      {"apps.org.example.Chat.icon", {"31"}, "from 0 to 30"},
      {"doNotDisturb.phoshProfiles", {"quiet", "silent"}, "[\"quiet\", \"silent\"]"},
      {"doNotDisturb.phoshProfiles", {}, "[]"},
      {"button.once", {"playPause"}, "\"playPause\""},
      {"button.once", {"playpause"}, "button.once has to be none, playPause"},
      {"button.once", {"/bin/true"}, "[\"/bin/true\"]"},
      {"button.once", {"notify-send", "Hi"}, "[\"notify-send\", \"Hi\"]"},
      {"timout", {}, "did you mean timeout?"},
      {"HRinterval", {}, "did you mean hrInterval?"},
      {"batery.alertBelow", {}, "did you mean battery.alertBelow?"},
      {"volume", {}, "\"settings list\" shows all"},
      {"apps.Chat.icons", {}, "did you mean apps.Chat.icon?"},
      {"apps.icon", {}, "names no app's setting"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.key);
    const auto named = settingNamed(c.key);
    const auto value =
        named ? settingValue(*named->key, c.words) : platform::Result<Value>(named.error());
    const std::string text = value ? tomlText(*value) : value.error().localizedDescription;
    EXPECT_NE(text.find(c.expected), std::string::npos) << text;
  }
  EXPECT_EQ(settingNamed("apps.org.example.Chat.icon")->path, kIcon);
  EXPECT_EQ(settingNamed("apps.\"org.example.Chat\".icon")->path, kIcon);
}

}  // namespace
}  // namespace wrixel2::settings
