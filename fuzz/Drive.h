#pragma once

#include "fuzz/Input.h"

namespace wrixel2::fuzz {

/// Lets happen to the subject what the input decides, in at most so many turns, and then what is to
/// bring it back to its usual state.
template <typename Subject>
void drive(Subject& subject, Input& input, int turns) {
  for (; turns > 0 && !input.isEmpty(); --turns) {
    subject.happen(input);
  }
  subject.recover();
}

}  // namespace wrixel2::fuzz
