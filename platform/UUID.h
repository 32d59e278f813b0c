#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace wrixel2::platform {

/// A Bluetooth UUID or a device identifier: 128 bits. Short UUIDs (16 and 32 bits) are values on
/// the Bluetooth base (xxxxxxxx-0000-1000-8000-00805f9b34fb, Core Specification Vol 3, Part
/// B, 2.5.1) and equal their long form.
class UUID {
 public:
  /// All zeros.
  UUID() = default;
  explicit constexpr UUID(std::array<std::uint8_t, 16> bytes) : bytes_(bytes) {}

  /// From 4, 8 or 36 characters of hexadecimal text (the last with its hyphens), in either case;
  /// none for any other text.
  static std::optional<UUID> fromText(std::string_view text);
  /// A text that the program itself made; a malformed one gives the UUID of all zeros.
  static UUID withString(std::string_view text);
  /// The version-5 (SHA-1) UUID of a name in a name space, RFC 9562, 5.5.
  static UUID version5(const UUID& nameSpace, std::string_view name);

  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  /// The full 36 lower-case characters.
  std::string longText() const;
  /// The shortest form: 4 or 8 lower-case characters for short UUIDs, else the full 36.
  std::string text() const;

  friend bool operator==(const UUID&, const UUID&) = default;
  friend auto operator<=>(const UUID&, const UUID&) = default;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace wrixel2::platform
