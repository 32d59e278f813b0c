#include "ctl/Json.h"

#include <cmath>
#include <string_view>
#include <type_traits>

#include <fmt/format.h>

#include "platform/Utf8.h"

namespace wrixel2::ctl {

namespace {

constexpr std::size_t kIndentation = 2;

class JsonWriter {
 public:
  explicit JsonWriter(JsonLayout layout) : isIndented_(layout == JsonLayout::indented) {}

  std::string text;

  void write(const platform::Value& value) {
    std::visit([this](const auto& concrete) { writeConcrete(concrete); }, value.variant());
  }

 private:
  void writeConcrete(bool value) { text += value ? "true" : "false"; }
  void writeConcrete(std::int64_t value) { text += fmt::format("{}", value); }
  void writeConcrete(double value) {
    text += std::isfinite(value) ? fmt::format("{}", value) : "null";
  }
  void writeConcrete(const std::string& value) { writeText(value); }
  void writeConcrete(const platform::Bytes& value) { writeText(platform::hexText(value)); }
  void writeConcrete(const platform::Date& value) {
    writeConcrete(static_cast<std::int64_t>(
        std::chrono::floor<std::chrono::seconds>(value).time_since_epoch().count()));
  }
  void writeConcrete(const platform::Array& values) {
    writeMembers('[', ']', values, [this](const platform::Value& value) { write(value); });
  }
  void writeConcrete(const platform::Dictionary& values) {
    writeMembers('{', '}', values, [this](const auto& member) {
      writeText(member.first);
      text += isIndented_ ? ": " : ":";
      write(member.second);
    });
  }

  template <typename Members, typename Write>
  void writeMembers(char open, char close, const Members& members, Write writeMember) {
    text += open;
    depth_ += kIndentation;
    bool isFirst = true;
    for (const auto& member : members) {
      text += isFirst ? "" : ",";
      isFirst = false;
      breakLine();
      writeMember(member);
    }
    depth_ -= kIndentation;
    if (!isFirst) {
      breakLine();
    }
    text += close;
  }

  void breakLine() {
    if (isIndented_) {
      text += '\n';
      text.append(depth_, ' ');
    }
  }

  void writeText(std::string_view value) {
    text += '"';
    while (!value.empty()) {
      const auto first = platform::firstCharacter(value);
      if (first.character) {
        writeCharacter(*first.character, value.substr(0, first.length));
      } else {
        text += platform::kReplacementCharacter;
      }
      value.remove_prefix(first.length);
    }
    text += '"';
  }

  void writeCharacter(char32_t character, std::string_view bytes) {
    if (character == U'"' || character == U'\\') {
      text += '\\';
      text += bytes;
    } else if (platform::isControl(character)) {
      text += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
    } else {
      text += bytes;
    }
  }

  bool isIndented_;
  std::size_t depth_ = 0;
};

}  // namespace

std::string jsonText(const platform::Value& value, JsonLayout layout) {
  JsonWriter writer(layout);
  writer.write(value);
  return std::move(writer.text);
}

}  // namespace wrixel2::ctl
