#pragma once

#include <string>
#include <string_view>

#include "platform/Result.h"

namespace wrixel2::ctl {

/// Where the program's words go, and where they come from.
class Console {
 public:
  virtual ~Console() = default;

  /// To standard output, as it is and at once.
  virtual void print(std::string_view text) = 0;
  /// One line to standard error, behind the program's name.
  virtual void complain(std::string_view sentence) = 0;

  /// Whether somebody looks at standard error, so that progress is worth showing.
  virtual bool showsProgress() const = 0;
  /// Replaces the progress line at standard error; an empty one takes it away.
  virtual void setProgress(std::string_view line) = 0;

  /// Of standard output's terminal; 80 where it is none.
  virtual int columns() const = 0;
  /// Whether the locale lets more than ASCII be shown.
  virtual bool isUtf8() const = 0;

  /// All of standard input, which is limited to what a file of that purpose has.
  virtual platform::Result<std::string> readInput() = 0;
};

}  // namespace wrixel2::ctl
