#pragma once

#include <string>
#include <string_view>

#include "platform/FileManager.h"
#include "platform/PropertyLists.h"
#include "platform/Result.h"

namespace wrixel2::ctl {

/// The band's pairing key as the maker's app stored it: a text, which stays exactly as it is,
/// because what the band is shown is made of its characters.
class PairingKey {
 public:
  /// Blanks and line breaks around it are no part of it. Fails, with what to do, for what cannot be
  /// a key: nothing, several words or lines, control characters, what is no text at all.
  static platform::Result<PairingKey> fromText(std::string_view text);

  /// From a file with the key as text, from the app's own file with it, or from the app's folders:
  /// their base or its Library/Preferences.
  static platform::Result<PairingKey> fromPath(const platform::FileManager& files,
                                               const platform::PropertyLists& propertyLists,
                                               const std::string& path);

  const std::string& text() const { return text_; }
  /// The 32 hexadecimal digits that the app makes of it; any other text is unusual.
  bool isUsual() const;
  /// By which one knows a key again without learning anything of it.
  std::string fingerprint() const;

 private:
  explicit PairingKey(std::string text) : text_(std::move(text)) {}

  std::string text_;
};

}  // namespace wrixel2::ctl
