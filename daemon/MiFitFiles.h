#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/PropertyLists.h"

namespace wrixel2::daemon {

/// The files of the band maker's companion app below one folder, as far as they lead to the band's
/// pairing key: which user's it is, and the key that is stored for that user. Why there is none is
/// told in the log.
class MiFitFiles {
 public:
  /// What it is given outlives it.
  MiFitFiles(const platform::FileManager& files, const platform::PropertyLists& propertyLists,
             const platform::Logger& logger, std::string basePath);

  /// The pairing key as the app wrote it, never empty.
  std::optional<std::string> authKey() const;

  /// Where the app names its user ("userid"), and where it has that user's key
  /// ("band_bind_auth_key").
  static std::string userFile(const std::string& basePath);
  static std::string keyFile(const std::string& basePath, const std::string& userId);
  /// Whether the text can name a user, whose folder it is then, and not a place elsewhere.
  static bool isUserId(std::string_view text);

 private:
  std::optional<std::string> userId() const;
  std::optional<std::string> userIdFromPreferences() const;
  std::optional<std::string> scanForUserId(const std::string& directory) const;
  std::optional<std::string> bindAuthKey(const std::string& userId) const;
  void logLoadFailure(const std::string& path, const platform::Error& error) const;

  const platform::FileManager& files_;
  const platform::PropertyLists& propertyLists_;
  platform::Logger logger_;
  std::string basePath_;
};

}  // namespace wrixel2::daemon
