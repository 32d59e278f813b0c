#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/RunLoop.h"

namespace wrixel2::mbmodel {

/// Small routines that several band records and services share.
class MBHelper {
 public:
  MBHelper() = delete;

  /// Copyable, so that every completion that is counted can own one; all copies share the count.
  using Counter = std::function<void()>;

  /// Always two lower-case digits.
  static std::string byte2HexString(std::uint8_t byte);
  /// The number that the text begins with, after blanks and an optional "0x". Text without a digit
  /// is 0, a number too large for 32 bits the largest of them.
  static std::uint32_t hexString2Int(std::string_view text);

  /// The Dallas/Maxim 1-Wire CRC-8: reflected polynomial 0x8C, initial value 0, no final
  /// exclusive-or. No bytes give 0.
  static std::uint8_t CRC8WithBytes(platform::ByteView bytes);

  /// The call that makes the count equal to the target runs the action; no other call does
  /// anything. A target of 0 is never reached.
  static Counter counter(std::size_t target, platform::Task action);
  /// The counter that waits for services, one call each.
  static Counter serviceCounter(std::size_t target, platform::Task action);
};

}  // namespace wrixel2::mbmodel
