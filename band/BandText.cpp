#include "band/BandText.h"

#include <algorithm>
#include <string_view>

#include "platform/Utf8.h"

namespace wrixel2::band {

std::string displayedText(platform::ByteView bytes) {
  std::string sent(bytes.begin(), bytes.end());
  std::erase(sent, '\0');
  std::string shown;
  for (std::string_view rest = sent; !rest.empty();) {
    const auto prefix = platform::firstCharacter(rest);
    if (prefix.character) {
      shown += rest.substr(0, prefix.length);
    } else if (!prefix.isCutOff) {
      shown += platform::kReplacementCharacter;
    }
    rest.remove_prefix(prefix.length);
  }
  return shown;
}

}  // namespace wrixel2::band
