#pragma once

#include "platform/Bytes.h"
#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::platform::linux {

/// Whether the bytes begin as a binary property list does.
bool isBinaryPropertyList(ByteView bytes);

/// The value of a binary property list ("bplist00": objects, a table of their offsets, a trailer of
/// 32 bytes). Anything that is damaged, refers to itself, or is of a kind that values do not have
/// (null, UID, set) is an error. Integers of 16 bytes keep their low 64 bits.
Result<Value> valueFromBinaryPropertyList(ByteView bytes);

}  // namespace wrixel2::platform::linux
