#include "ctl/PairingKey.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

#include "ctl/CollectedLog.h"
#include "daemon/MiFitFiles.h"
#include "platform/Bytes.h"
#include "platform/UUID.h"
#include "platform/Utf8.h"

namespace wrixel2::ctl {

namespace {

constexpr std::size_t kUsualLength = 32;
constexpr std::size_t kLongest = 256;
constexpr std::string_view kBlanks = " \t\r\n";
constexpr const char* kKeyEntry = "band_bind_auth_key";

platform::Error noKey(std::string_view reason) {
  return {0, fmt::format("{}; give the 32 hexadecimal digits that the maker's app stored as {}, in "
                         "one line, or that app's folder",
                         reason, kKeyEntry)};
}

platform::Result<PairingKey> fromFolder(const platform::FileManager& files,
                                        const platform::PropertyLists& propertyLists,
                                        const std::filesystem::path& folder) {
  CollectedLog log;
  const platform::Logger logger(log, "PairingKey");
  const bool isPreferences =
      folder.filename() == "Preferences" && folder.parent_path().filename() == "Library";
  const auto base = isPreferences ? folder.parent_path().parent_path() : folder;
  const auto key = daemon::MiFitFiles(files, propertyLists, logger, base.string()).authKey();
  if (!key) {
    return noKey(fmt::format("there is no pairing key in {}{}{}", folder.string(),
                             log.messages().empty() ? "" : ": ",
                             log.messages().empty() ? "" : log.messages().back()));
  }
  return PairingKey::fromText(*key);
}

}  // namespace

platform::Result<PairingKey> PairingKey::fromText(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return noKey("there is no key in it");
  }
  const std::string_view key = text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
  if (key.find_first_of("\r\n") != std::string_view::npos) {
    return noKey("a key is a single line");
  }
  if (key.find_first_of(" \t") != std::string_view::npos) {
    return noKey("a key has no blanks in it");
  }
  const bool isPrintable = std::none_of(key.begin(), key.end(), [](char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7F;
  });
  if (!isPrintable || !platform::isUtf8(key) || key.size() > kLongest) {
    return noKey("this is no text of a key");
  }
  return PairingKey(std::string(key));
}

platform::Result<PairingKey> PairingKey::fromPath(const platform::FileManager& files,
                                                  const platform::PropertyLists& propertyLists,
                                                  const std::string& path) {
  std::error_code error;
  const auto normal = std::filesystem::absolute(path, error).lexically_normal();
  if (error) {
    return noKey(fmt::format("\"{}\" is no path: {}", path, error.message()));
  }
  const auto folder = normal.has_filename() ? normal : normal.parent_path();
  if (files.contentsOfDirectoryAtPath(folder.string())) {
    return fromFolder(files, propertyLists, folder);
  }
  const auto contents = files.contentsAtPath(folder.string());
  if (!contents) {
    return contents.error();
  }
  if (const auto plist = propertyLists.dictionaryWithContentsOfFile(folder.string())) {
    const auto key = platform::textForKey(*plist, kKeyEntry);
    return key ? fromText(*key)
               : noKey(fmt::format("{} is a property list without a key", folder.string()));
  }
  return fromText(
      std::string_view(reinterpret_cast<const char*>(contents->data()), contents->size()));
}

bool PairingKey::isUsual() const {
  return text_.size() == kUsualLength && std::all_of(text_.begin(), text_.end(), [](char digit) {
           return platform::hexDigitValue(digit).has_value();
         });
}

std::string PairingKey::fingerprint() const {
  static const platform::UUID kNameSpace =
      platform::UUID::withString("1d0a0c6a-8e8e-4d0f-9a76-0b9f0f0c4a52");
  constexpr std::size_t kShown = 8;
  return platform::UUID::version5(kNameSpace, text_).longText().substr(0, kShown);
}

}  // namespace wrixel2::ctl
