#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"

namespace wrixel2::ctl {

/// Keeps the warnings and errors of the classes that this program shares with the daemon, to say
/// what went wrong in a sentence of its own. Private texts are not in them.
class CollectedLog final : public platform::Log {
 public:
  void write(platform::LogLevel level, std::string_view /*module*/, unsigned /*line*/,
             std::string_view message) override {
    if (level != platform::LogLevel::info) {
      writePlain(message);
    }
  }
  void writePlain(std::string_view message) override { messages_.emplace_back(message); }
  bool showsPrivate() const override { return false; }

  const std::vector<std::string>& messages() const { return messages_; }

 private:
  std::vector<std::string> messages_;
};

}  // namespace wrixel2::ctl
