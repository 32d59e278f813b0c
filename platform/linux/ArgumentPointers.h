#pragma once

#include <string>
#include <vector>

namespace wrixel2::platform::linux {

/// What exec and its like take: a pointer to each of the texts, which have to stay, and a null one.
inline std::vector<char*> argumentPointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace wrixel2::platform::linux
