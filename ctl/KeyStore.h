#pragma once

#include <optional>
#include <string>

#include "ctl/PairingKey.h"
#include "platform/FileManager.h"
#include "platform/PropertyLists.h"

namespace wrixel2::ctl {

/// The folder from which the daemon takes the pairing key, in the layout of the maker's app.
class KeyStore {
 public:
  KeyStore(platform::FileManager& files, platform::PropertyLists& propertyLists, std::string folder)
      : files_(files), propertyLists_(propertyLists), folder_(std::move(folder)) {}

  /// As the daemon would find it. Fails where there is none, with the reason.
  platform::Result<PairingKey> key() const;
  /// The file that holds the key, by the user that the folder names.
  std::string keyFile() const;

  /// For the owner alone: files 0600, folders 0700. The old key holds until the new one is
  /// written.
  platform::ErrorOrNone write(const PairingKey& key);

 private:
  std::optional<std::string> userId() const;

  platform::FileManager& files_;
  platform::PropertyLists& propertyLists_;
  std::string folder_;
};

}  // namespace wrixel2::ctl
