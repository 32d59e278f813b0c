#include "platform/linux/BinaryPropertyList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string_view>

#include <fmt/format.h>

#include "platform/Utf8.h"
#include "platform/linux/PropertyListLimits.h"

namespace wrixel2::platform::linux {
namespace {

constexpr std::string_view kMagic = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kLargestInteger = 16;
/// 2001-01-01 00:00:00 UTC, from which the format counts its seconds.
constexpr Date kReferenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
constexpr double kMostSeconds = 1e10;  // three centuries

// The kinds, in an object's upper four bits; the lower four are a length or tell more.
enum Marker : std::uint8_t {
  kSingle = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kArray = 0xA,
  kDictionary = 0xD
};

std::uint64_t bigEndian(ByteView bytes) {
  std::uint64_t value = 0;
  for (const auto byte : bytes) {
    value = value << 8 | byte;
  }
  return value;
}

Error damaged(std::string_view what) { return {0, fmt::format("damaged: {}", what)}; }

// Halves of surrogate pairs without the other become U+FFFD.
std::string textFromUtf16(ByteView bytes) {
  std::string text;
  const auto unitAt = [&](std::size_t index) {
    return static_cast<std::uint32_t>(bigEndian(bytes.subspan(index, 2)));
  };
  for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
    std::uint32_t character = unitAt(index);
    if (character >= 0xD800 && character <= 0xDFFF) {
      const std::uint32_t next = index + 3 < bytes.size() ? unitAt(index + 2) : 0;
      if (character < 0xDC00 && next >= 0xDC00 && next <= 0xDFFF) {
        character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
        index += 2;
      } else {
        character = 0xFFFD;
      }
    }
    text += utf8FromCharacter(character);
  }
  return text;
}

class Reader {
 public:
  explicit Reader(ByteView bytes) : bytes_(bytes) {}

  Result<Value> read() {
    if (bytes_.size() < kHeaderSize + kTrailerSize) {
      return damaged("it ends too early");
    }
    const auto trailer = bytes_.last(kTrailerSize);
    offsetSize_ = trailer[6];
    referenceSize_ = trailer[7];
    objectCount_ = bigEndian(trailer.subspan(8, 8));
    const auto root = bigEndian(trailer.subspan(16, 8));
    const auto table = bigEndian(trailer.subspan(24, 8));
    const std::size_t end = bytes_.size() - kTrailerSize;
    const auto isSize = [](std::size_t size) { return size >= 1 && size <= 8; };
    if (!isSize(offsetSize_) || !isSize(referenceSize_) || table < kHeaderSize || table > end ||
        objectCount_ > (end - table) / offsetSize_) {
      return damaged("its trailer does not fit it");
    }
    offsets_ = bytes_.subspan(table, objectCount_ * offsetSize_);
    bytes_ = bytes_.first(table);  // objects lie before the table
    return object(root, 0);
  }

 private:
  Result<Value> object(std::uint64_t number, int depth) {
    if (depth > kMaximumPropertyListDepth) {
      return Error{0, "it is nested too deeply"};
    }
    if (number >= objectCount_) {
      return damaged("a reference leads nowhere");
    }
    const auto offset = bigEndian(offsets_.subspan(number * offsetSize_, offsetSize_));
    if (offset < kHeaderSize || offset >= bytes_.size()) {
      return damaged("an object lies outside");
    }
    ByteView rest = bytes_.subspan(offset + 1);
    const std::uint8_t kind = bytes_[offset] >> 4;
    const std::uint8_t detail = bytes_[offset] & 0x0F;
    switch (kind) {
      case kSingle:
        return single(detail);
      case kInteger:
        return integer(rest, detail);
      case kReal:
        return real(rest, detail);
      case kDate:
        return date(rest, detail);
      case kData:
      case kAscii:
      case kUtf16:
        return string(kind, rest, detail);
      case kArray:
        return array(rest, detail, depth);
      case kDictionary:
        return dictionary(rest, detail, depth);
      default:
        return Error{0, fmt::format("it has an object of an unknown kind ({:#x})", kind)};
    }
  }

  Result<Value> spent(Value value, std::size_t bytes = 0) {
    if (auto error = budget_.spend(bytes)) {
      return *error;
    }
    return value;
  }

  Result<Value> single(std::uint8_t detail) {
    if (detail != 8 && detail != 9) {
      return Error{0, "it has a null"};
    }
    return spent(detail == 9);
  }

  // As many bytes as two to the power of the detail.
  static Result<ByteView> number(ByteView rest, std::uint8_t detail, std::size_t largest) {
    const std::size_t size = detail > 4 ? SIZE_MAX : std::size_t{1} << detail;
    if (size > largest || size > rest.size()) {
      return damaged("a number has no such length");
    }
    return rest.first(size);
  }

  Result<Value> integer(ByteView rest, std::uint8_t detail) {
    const auto digits = number(rest, detail, kLargestInteger);
    if (!digits) {
      return digits.error();
    }
    return spent(static_cast<std::int64_t>(
        bigEndian(digits->last(std::min<std::size_t>(digits->size(), 8)))));
  }

  static Result<double> realNumber(ByteView rest, std::uint8_t detail) {
    const auto digits = number(rest, detail, 8);
    if (!digits) {
      return digits.error();
    }
    if (digits->size() == 8) {
      return std::bit_cast<double>(bigEndian(*digits));
    }
    if (digits->size() == 4) {
      return double{std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(*digits)))};
    }
    return damaged("a real has no such length");
  }

  Result<Value> real(ByteView rest, std::uint8_t detail) {
    const auto value = realNumber(rest, detail);
    return value ? spent(*value) : value.error();
  }

  Result<Value> date(ByteView rest, std::uint8_t detail) {
    const auto seconds = realNumber(rest, detail);
    if (!seconds) {
      return seconds.error();
    }
    if (!(std::fabs(*seconds) < kMostSeconds)) {
      return damaged("a date lies outside every calendar");
    }
    return spent(kReferenceDate + platform::seconds(*seconds));
  }

  // Takes the length of a string or container off the rest: in the marker itself, or as an integer
  // behind it.
  static Result<std::size_t> takeLength(ByteView& rest, std::uint8_t detail) {
    if (detail != 0x0F) {
      return std::size_t{detail};
    }
    if (rest.empty() || rest.front() >> 4 != kInteger) {
      return damaged("an object has no length");
    }
    const auto digits = number(rest.subspan(1), rest.front() & 0x0F, 8);
    if (!digits) {
      return digits.error();
    }
    rest = rest.subspan(1 + digits->size());
    return static_cast<std::size_t>(bigEndian(*digits));
  }

  Result<Value> string(std::uint8_t kind, ByteView rest, std::uint8_t detail) {
    const auto length = takeLength(rest, detail);
    if (!length) {
      return length.error();
    }
    const std::size_t unit = kind == kUtf16 ? 2 : 1;
    if (*length > rest.size() / unit) {
      return damaged("a string is longer than the file");
    }
    // Before it is copied.
    if (auto error = budget_.spend(*length * unit)) {
      return *error;
    }
    const auto content = rest.first(*length * unit);
    if (kind == kData) {
      return Value(Bytes(content.begin(), content.end()));
    }
    if (kind == kUtf16) {
      return Value(textFromUtf16(content));
    }
    if (std::any_of(content.begin(), content.end(), [](auto byte) { return byte >= 0x80; })) {
      return damaged("a text is not ASCII");
    }
    return Value(std::string(content.begin(), content.end()));
  }

  // The references of a container, each of the size that the trailer gives.
  Result<ByteView> references(ByteView rest, std::uint8_t detail, std::size_t perEntry) {
    const auto length = takeLength(rest, detail);
    if (!length) {
      return length.error();
    }
    if (*length > rest.size() / (referenceSize_ * perEntry)) {
      return damaged("a container is longer than the file");
    }
    if (auto error = budget_.spend(0)) {
      return *error;
    }
    return rest.first(*length * referenceSize_ * perEntry);
  }

  Result<Value> referredTo(ByteView list, std::size_t index, int depth) {
    return object(bigEndian(list.subspan(index * referenceSize_, referenceSize_)), depth + 1);
  }

  Result<Value> array(ByteView rest, std::uint8_t detail, int depth) {
    const auto list = references(rest, detail, 1);
    if (!list) {
      return list.error();
    }
    Array values;
    for (std::size_t index = 0; index < list->size() / referenceSize_; ++index) {
      auto value = referredTo(*list, index, depth);
      if (!value) {
        return value;
      }
      values.push_back(std::move(*value));
    }
    return Value(std::move(values));
  }

  // All references of the keys come first, then all of the values.
  Result<Value> dictionary(ByteView rest, std::uint8_t detail, int depth) {
    const auto list = references(rest, detail, 2);
    if (!list) {
      return list.error();
    }
    const std::size_t count = list->size() / referenceSize_ / 2;
    Dictionary entries;
    for (std::size_t index = 0; index < count; ++index) {
      const auto key = referredTo(*list, index, depth);
      if (!key) {
        return key;
      }
      if (key->text() == nullptr) {
        return damaged("a key is not a text");
      }
      auto value = referredTo(*list, count + index, depth);
      if (!value) {
        return value;
      }
      entries.insert_or_assign(*key->text(), std::move(*value));
    }
    return Value(std::move(entries));
  }

  ByteView bytes_;
  ByteView offsets_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  PropertyListBudget budget_;
};

}  // namespace

bool isBinaryPropertyList(ByteView bytes) {
  return bytes.size() >= kMagic.size() && std::equal(kMagic.begin(), kMagic.end(), bytes.begin());
}

Result<Value> valueFromBinaryPropertyList(ByteView bytes) { return Reader(bytes).read(); }

}  // namespace wrixel2::platform::linux
