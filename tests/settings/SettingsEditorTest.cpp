#include <optional>
#include <set>
#include <sstream>
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

constexpr auto kNone = std::nullopt;

/// The words between slashes.
KeyPath pathOf(const std::string& text) {
  KeyPath path;
  std::istringstream words(text);
  for (std::string word; std::getline(words, word, '/');) {
    path.push_back(word);
  }
  return path;
}

/// One change of a text.
struct Edit {
  const char* what;
  const char* path;
  std::optional<Value> value;  ///< none removes the entry
  std::string before;
  std::string result;  ///< the text after it; of a refusal, a part of its message

  platform::ErrorOrNone applyTo(SettingsEditor& editor) const {
    return value ? editor.set(pathOf(path), *value) : editor.unset(pathOf(path));
  }
};

TEST(SettingsEditorTest, ChangesOneEntryAndNothingElse) {
  const std::string kMine = "# mine\ntimeout  =  15   # s\n\nmode = 1\n";
  const std::string kChat = "[apps.Chat]\nicon = 9\n";
  const std::string kInline = "[apps]\nA = { icon = 1, repeat=2 } # c\n";
  const std::string kLines = "[button]\nonce = [ # what\n  \"a\",\n  \"[b]\"\n]\nwindow = 5\n";
  const Edit edits[] = {
      {"an empty file", "timeout", 30, "", "timeout = 30\n"},
      {"a value", "timeout", 30, kMine, "# mine\ntimeout  =  30   # s\n\nmode = 1\n"},
      {"a value behind umlauts", "mode", 0, "\"enabled\" = true # ä\n\"mode\" = 1 # ö",
       "\"enabled\" = true # ä\n\"mode\" = 0 # ö"},
      {"a byte order mark", "mode", 0, "\xEF\xBB\xBFmode = 1\n", "\xEF\xBB\xBFmode = 0\n"},
      {"new, behind the last", "timeout", 30, "  mode = 1 # a\n\n# Chat\n" + kChat,
       "  mode = 1 # a\n  timeout = 30\n\n# Chat\n" + kChat},
      {"new, before the first table", "timeout", 30, kChat, "timeout = 30\n\n" + kChat},
      {"new, behind the opening comment", "timeout", 30, "# My band\n\n# Chat\n" + kChat,
       "# My band\n\ntimeout = 30\n\n# Chat\n" + kChat},
      {"only a comment", "timeout", 30, "# My band", "# My band\ntimeout = 30\n"},
      {"no final line end", "timeout", 30, "mode = 1", "mode = 1\ntimeout = 30\n"},
      {"line ends of its own", "apps/Chat/repeat", 2, "[apps.Chat]\r\nicon = 9\r\n",
       "[apps.Chat]\r\nicon = 9\r\nrepeat = 2\r\n"},
      {"a new app", "apps/Chat/icon", 9, "mode = 1", "mode = 1\n\n" + kChat},
      {"an app with quotes in its name", "apps/a\"b\\c\t/preview", true, "mode = 1\n\n",
       "mode = 1\n\n[apps.\"a\\\"b\\\\c\\u0009\"]\npreview = true\n"},
      {"an app's other key", "apps/Chat/repeat", 1, kChat + "# quiet\n\n[apps.Mail]\n",
       kChat + "repeat = 1\n# quiet\n\n[apps.Mail]\n"},
      {"an empty table", "apps/a.b/icon", 9, "[ apps . 'a.b' ] # c\n\n[apps.Mail]\n",
       "[ apps . 'a.b' ] # c\nicon = 9\n\n[apps.Mail]\n"},
      {"below the apps' header", "apps/a.b/icon", 9, kInline,
       kInline + "\n[apps.\"a.b\"]\nicon = 9\n"},
      {"an inline table", "apps/A/preview", true, kInline,
       "[apps]\nA = { icon = 1, repeat=2, preview = true } # c\n"},
      {"a value in an inline table", "apps/A/icon", 30, kInline,
       "[apps]\nA = { icon = 30, repeat=2 } # c\n"},
      {"an inline table of tables", "apps/A/icon", 9, "apps = { }\n", "apps = { A.icon = 9 }\n"},
      {"dotted keys", "apps/A/repeat", 1, "mode = 1\nbattery.alertBelow = 5\napps.A.icon = 1\n",
       "mode = 1\nbattery.alertBelow = 5\napps.A.icon = 1\napps.A.repeat = 1\n"},
      {"a dotted table above", "apps/B/icon", 2, "apps.A.icon = 1\n[battery]\n",
       "apps.A.icon = 1\napps.B.icon = 2\n[battery]\n"},
      {"behind a value of many lines", "button/twice", "hangUp", kLines,
       kLines + "twice = \"hangUp\"\n"},
      {"a value of many lines", "button/once", platform::Array{"x", "y z"}, kLines,
       "[button]\nonce = [\"x\", \"y z\"]\nwindow = 5\n"},
      {"removed", "timeout", kNone, "timeout = 5 # s\n# c\nmode = 1", "# c\nmode = 1"},
      {"removed with all its lines", "button/once", kNone, kLines, "[button]\nwindow = 5\n"},
      {"removed from an inline table", "apps/A/icon", kNone, kInline,
       "[apps]\nA = { repeat=2 } # c\n"},
      {"removed, the last of an inline table", "apps/A/repeat", kNone, kInline,
       "[apps]\nA = { icon = 1 } # c\n"},
      {"removed, dotted", "apps/A/repeat", kNone, "apps.A.icon = 1\napps.A.repeat = 2",
       "apps.A.icon = 1\n"},
  };
  for (const Edit& edit : edits) {
    SCOPED_TRACE(edit.what);
    auto editor = SettingsEditor::ofText("settings.toml", edit.before);
    ASSERT_TRUE(editor) << editor.error().localizedDescription;
    EXPECT_EQ(edit.applyTo(*editor), kNone);
    EXPECT_EQ(editor->text(), edit.result);
    const auto* entry = editor->find(pathOf(edit.path));
    EXPECT_EQ(entry != nullptr ? std::optional(entry->value) : kNone, edit.value);
  }
}

TEST(SettingsEditorTest, WhatCannotBeDoneLeavesTheText) {
  const Edit refused[] = {
      {"nothing to remove", "timeout", kNone, "mode = 1\n", "does not set timeout"},
      {"dotted in an inline table", "apps/A/icon", kNone, "apps = { A.icon = 1 }\n", "header"},
      {"a value of a wrong kind", "timeout", "soon", "mode = 1\n", "timeout is a text"},
      {"a table of that name", "battery", 1, "[battery]\n", "text editor"},
  };
  for (const Edit& edit : refused) {
    SCOPED_TRACE(edit.what);
    auto editor = SettingsEditor::ofText("settings.toml", edit.before);
    ASSERT_TRUE(editor);
    const std::string error =
        edit.applyTo(*editor).value_or(platform::Error{}).localizedDescription;
    EXPECT_NE(error.find(edit.result), std::string::npos) << error;
    EXPECT_EQ(editor->text(), edit.before);
  }
}

TEST(SettingsEditorTest, AFileWithErrorsIsNotEdited) {
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
  ASSERT_EQ(fresh->set(pathOf("apps/org.example.Chat/icon"), 9), std::nullopt);
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
  for (const char* name : {"apps.org.example.Chat.icon", "apps.\"org.example.Chat\".icon"}) {
    EXPECT_EQ(settingNamed(name)->path, pathOf("apps/org.example.Chat/icon"));
  }
}

}  // namespace
}  // namespace wrixel2::settings
