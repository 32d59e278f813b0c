#include "ctl/KeyStore.h"

#include <filesystem>

#include "daemon/MiFitFiles.h"

namespace wrixel2::ctl {

namespace {

using daemon::MiFitFiles;

/// Of a folder that this program made; the app's own folders name their user.
constexpr const char* kOwnUser = "1000000000";
constexpr const char* kUserEntry = "userid";
constexpr const char* kKeyEntry = "band_bind_auth_key";

/// What is not there needs no restriction; what cannot be restricted cannot be written either.
void restrictToOwner(const std::filesystem::path& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  fs::permissions(path,
                  fs::is_directory(path, ignored) ? fs::perms::owner_all
                                                  : fs::perms::owner_read | fs::perms::owner_write,
                  ignored);
}

}  // namespace

platform::Result<PairingKey> KeyStore::key() const {
  if (!files_.fileExistsAtPath(folder_)) {
    return platform::Error{0, "there is no pairing key yet"};
  }
  return PairingKey::fromPath(files_, propertyLists_, folder_);
}

std::optional<std::string> KeyStore::userId() const {
  const auto user = propertyLists_.dictionaryWithContentsOfFile(MiFitFiles::userFile(folder_));
  auto id = user ? platform::textForKey(*user, kUserEntry) : std::nullopt;
  return id && MiFitFiles::isUserId(*id) ? id : std::nullopt;
}

std::string KeyStore::keyFile() const {
  return MiFitFiles::keyFile(folder_, userId().value_or(kOwnUser));
}

platform::ErrorOrNone KeyStore::write(const PairingKey& key) {
  const std::string file = keyFile();
  // An older file's mode outlives its replacement.
  restrictToOwner(file);
  for (auto above = std::filesystem::path(file).parent_path();
       above.string().size() >= folder_.size(); above = above.parent_path()) {
    restrictToOwner(above);
  }
  // The app keeps other things beside the key.
  const auto existing = propertyLists_.dictionaryWithContentsOfFile(file);
  platform::Dictionary contents = existing ? *existing : platform::Dictionary{};
  contents.insert_or_assign(kKeyEntry, key.text());
  if (auto error = propertyLists_.writeToFileAtomically(file, contents)) {
    return error;
  }
  if (userId()) {
    return std::nullopt;
  }
  // Only now does it lead to the new key.
  return propertyLists_.writeToFileAtomically(MiFitFiles::userFile(folder_),
                                              {{kUserEntry, kOwnUser}});
}

}  // namespace wrixel2::ctl
