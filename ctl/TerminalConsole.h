#pragma once

#include <string>
#include <string_view>

#include "ctl/Console.h"

namespace wrixel2::ctl {

/// The process's own standard input, output and error.
class TerminalConsole final : public Console {
 public:
  void print(std::string_view text) override;
  void complain(std::string_view sentence) override;
  bool showsProgress() const override;
  void setProgress(std::string_view line) override;
  int columns() const override;
  bool isUtf8() const override;
  platform::Result<std::string> readInput() override;

  /// Why not everything printed has arrived, such as on a full disk.
  const platform::ErrorOrNone& outputError() const { return outputError_; }

 private:
  bool hasProgress_ = false;
  platform::ErrorOrNone outputError_;
};

}  // namespace wrixel2::ctl
