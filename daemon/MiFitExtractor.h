#pragma once

#include <optional>
#include <string>

#include "daemon/ShellCompanion.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "protocol/MBBLE/Services/KeyProvider.h"

namespace wrixel2::daemon {

/// Takes the band's pairing key from the files of the band maker's companion app. One for the life
/// of the process: a key once read survives that the app is removed.
class MiFitExtractor final : public mbservices::KeyProvider {
 public:
  explicit MiFitExtractor(const platform::Platform& platform);

  /// The pairing key as the app wrote it; else the last one read; else a text that is no key, with
  /// which authentication fails and everything else goes on.
  std::string getMiFitAuthId() override;

 private:
  std::optional<std::string> extractAuthKey();
  void findBasePath();

  const platform::Platform& platform_;
  platform::Logger logger_;
  ShellCompanion companion_;
  std::optional<std::string> basePath_;
  std::optional<std::string> authKey_;
};

}  // namespace wrixel2::daemon
