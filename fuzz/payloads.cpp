// The payload codec and every record made of it.

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/Utf8.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"
#include "protocol/MBModel/MBDeviceInfoModel.h"
#include "protocol/MBModel/MBHelper.h"
#include "protocol/MBModel/MBLEParamsModel.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::fuzz {
namespace {

using namespace mbmodel;  // NOLINT(google-build-using-namespace): all of it is under test
using platform::Bytes;

void checkCursor(const MBDataReader& reader) {
  check(reader.bytesLeftCount() == static_cast<std::ptrdiff_t>(reader.length() - reader.pos()),
        "what is left is the length less the cursor");
}

void walk(Input& input, const platform::Platform& platform) {
  MBDataReader reader(input.bytes(64));
  const Bytes before = reader.data();
  for (int step = 0; step < 16 && !input.isEmpty(); ++step) {
    const std::size_t position = reader.pos();
    const std::size_t count = input.byte();
    switch (input.below(9)) {
      case 0:
        reader.readInt(count);
        check(reader.pos() == position + count, "readInt moves by the count");
        break;
      case 1:
        reader.readIntReverse(count);
        check(reader.pos() == position, "readIntReverse peeks");
        break;
      case 2: {
        const int value = reader.readSensorData();
        check(value >= -2048 && value <= 2047, "a sensor value has 12 bits");
        break;
      }
      case 3: {
        const auto text = reader.readString(count);
        check(!text || (platform::isUtf8(*text) && text->size() <= count), "a text is valid");
        check(reader.pos() == position, "readString peeks");
        break;
      }
      case 4:
        check(MBDataReader(Bytes(before)).data() == before, "reading changes nothing");
        reader.readVersionString();
        check(reader.pos() == position + 4, "a version has four bytes");
        break;
      case 5:
        check(reader.readMACAddressString().size() == 17, "an address has 17 characters");
        check(reader.pos() == position + 6, "an address has six bytes");
        break;
      case 6:
        reader.readDate(platform.localTimeZone);
        check(reader.pos() == position + 8, "a date has eight bytes");
        break;
      case 7:
        reader.readTimeDate(platform);
        break;
      default:
        reader.rePos(static_cast<std::size_t>(input.integer()));
        break;
    }
    checkCursor(reader);
  }
  check(reader.data() == before, "reading changes nothing");
}

void build(Input& input, const platform::Platform& platform) {
  MBDataBuilder builder;
  for (int step = 0; step < 8 && !input.isEmpty(); ++step) {
    switch (input.below(7)) {
      case 0:
        builder.writeInt(static_cast<std::uint64_t>(input.integer()), input.byte());
        break;
      case 1:
        builder.writeString(input.text(40), input.byte());
        break;
      case 2:
        builder.writeDisplayText(input.bytes(40), input.byte());
        break;
      case 3:
        builder.writeVibrationPattern(input.byte(), input.byte(), input.byte());
        break;
      case 4:
        builder.writeVersionString(input.text(24));
        break;
      case 5:
        builder.writeDate(input.flag() ? std::optional(platform::Date(std::chrono::seconds(
                                             input.integer() % 200'000'000'000)))
                                       : std::nullopt,
                          platform.localTimeZone);
        break;
      default:
        builder.writeChecksumFromIndex(input.byte(), input.byte(), input.byte());
        break;
    }
    check(builder.data().size() == std::min(builder.pos(), MBDataBuilder::kBufferSize),
          "the payload ends at the cursor or with the buffer");
  }
}

void roundTrips(Input& input, const platform::Platform& platform) {
  const auto number = static_cast<std::uint64_t>(input.integer());
  const std::size_t width = 1 + input.below(8);
  MBDataReader numbers(MBDataBuilder().writeInt(number, width).data());
  const std::uint64_t kept = width == 8 ? number : number & ((1ULL << (8 * width)) - 1);
  check(numbers.readInt(width) == kept, "a number comes back with the bytes it was given");

  // The years whose dates the band's 16-bit year and the fire-date arithmetic both hold.
  const auto seconds = std::chrono::seconds(input.integer() % 4'000'000'000);
  const platform::Date date(seconds);
  const Bytes time = MBDataBuilder().writeDate(date, platform.localTimeZone).data();
  check(MBDataReader(time).readTimeDate(platform) == date, "the band's clock reads as it was set");

  MBLEParamsModel params(input.bytes(12));
  check(MBLEParamsModel(params.data()).data() == params.data(), "link parameters come back");
  check(params.data().size() == 8, "link parameters have eight bytes");

  const Bytes record = input.bytes(40);
  const MBActivityModel activity(record);
  check(record.size() >= 13 || activity.steps() == 0, "a short record leaves the counters zero");
  check(activity.steps() <= 0xFFFFFFFF && activity.distance() <= 0xFFFFFFFF &&
            activity.calories() <= 0xFFFFFFFF,
        "counters have 32 bits");
  const MBBatteryInfoModel battery(record, platform.localTimeZone);
  check(battery.level() <= 255 && battery.lastLevel() <= 255, "levels have a byte");
  check(record.size() >= 20 || !battery.lastCharge(), "a short record leaves no dates");
  const MBDeviceInfoModel device(record);
  check(device.data().size() == 16, "device information has sixteen bytes");
  static_cast<void>(activity.description() + battery.description() + device.description() +
                    params.description());
}

void alerts(Input& input, const platform::Platform& platform) {
  const MBVibrateModel alert(input.byte(), static_cast<std::uint64_t>(input.integer()),
                             static_cast<std::uint64_t>(input.integer()), "SECRET");
  check(alert.getIconValue() <= 0xFFFFFF, "an icon has three bytes");
  check(alert.description(platform.log).find("SECRET") == std::string::npos,
        "a text stays out of the log");
  const auto text = input.text(24);
  const auto value = MBHelper::hexString2Int(text);
  check(MBHelper::hexString2Int(fmt::format("0x{:x}", value)) == value, "hexadecimal comes back");
  auto checked = input.bytes(32);
  checked.push_back(MBHelper::CRC8WithBytes(checked));
  check(MBHelper::CRC8WithBytes(checked) == 0, "bytes with their checksum have the checksum 0");
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2;  // NOLINT(google-build-using-namespace)
  fuzz::Input input(data, size);
  platform::simulated::SimulatedPlatform phone;
  phone.timeZone.setSecondsFromGMT((static_cast<int>(input.below(107)) - 53) * 900);
  switch (input.below(4)) {
    case 0:
      fuzz::walk(input, phone.handle());
      break;
    case 1:
      fuzz::build(input, phone.handle());
      break;
    case 2:
      fuzz::roundTrips(input, phone.handle());
      break;
    default:
      fuzz::alerts(input, phone.handle());
      break;
  }
  return 0;
}
