#include "platform/linux/BusValues.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

#include <errno.h>
#include <fmt/format.h>

#include "platform/Utf8.h"
#include "platform/linux/BusText.h"

namespace wrixel2::platform::linux {
namespace {

Error misfit(const Value& value, std::string_view type) {
  return {EINVAL,
          fmt::format("A value of kind {} does not fit the type \"{}\"", kindName(value), type)};
}

Error readError(int result) { return errorFromErrno(-result, "The message cannot be read"); }

Error writeError(int result) { return errorFromErrno(-result, "The message cannot be made"); }

Error tooMuch(std::string_view what) { return {EMSGSIZE, fmt::format("The message has {}", what)}; }

// Reads one message; every function leaves the message behind what it read, or fails.
//
// Most of a message's time is spent here: what is read is made where it stays, and nothing is asked
// that the signature tells already.
class Reader {
 public:
  explicit Reader(sd_bus_message* message, bool isBounded = false)
      : message_(message),
        longestText_(isBounded ? kLongestText : SIZE_MAX),
        textLeft_(isBounded ? kMaximumBoundedBytes : SIZE_MAX) {}

  /// Leaves the value empty at the end of what is being read.
  ErrorOrNone next(std::optional<Value>& value) {
    char type = 0;
    const char* contents = nullptr;
    const int result = sd_bus_message_peek_type(message_, &type, &contents);
    if (result < 0) {
      return readError(result);
    }
    if (result == 0) {
      return std::nullopt;
    }
    if (++count_ > kMaximumBusValues) {
      return tooMuch("too many values");
    }
    switch (type) {
      case SD_BUS_TYPE_ARRAY:
        return array(contents, value);
      case SD_BUS_TYPE_VARIANT:
        return inside(type, contents, [&] { return variant(value); });
      case SD_BUS_TYPE_STRUCT:
      case SD_BUS_TYPE_DICT_ENTRY:
        return inside(type, contents, [&] { return list(value); });
      default:
        return basic(type, value);
    }
  }

  ErrorOrNone rest(Array& values) {
    std::optional<Value> value;
    while (true) {
      auto error = next(value);
      if (value) {
        values.push_back(std::move(*value));
      }
      if (error || !value) {
        return error;
      }
      value.reset();
    }
  }

 private:
  template <typename Content>
  ErrorOrNone inside(char type, const char* contents, Content content) {
    if (const int result = sd_bus_message_enter_container(message_, type, contents); result < 0) {
      return readError(result);
    }
    return restOfContainer(content);
  }

  template <typename Content>
  ErrorOrNone restOfContainer(Content content) {
    if (++depth_ > kMaximumBusDepth) {
      return tooMuch("too deeply nested values");
    }
    if (auto error = content()) {
      return error;
    }
    if (const int result = sd_bus_message_exit_container(message_); result < 0) {
      return readError(result);
    }
    --depth_;
    return std::nullopt;
  }

  ErrorOrNone variant(std::optional<Value>& value) {
    auto error = next(value);
    if (!error && !value) {
      return Error{EBADMSG, "The message has a variant of nothing"};
    }
    return error;
  }

  ErrorOrNone list(std::optional<Value>& value) {
    Array values;
    auto error = rest(values);
    value.emplace(std::move(values));
    return error;
  }

  ErrorOrNone array(const char* contents, std::optional<Value>& value) {
    if (contents[0] == SD_BUS_TYPE_BYTE) {
      const void* data = nullptr;
      std::size_t size = 0;
      if (const int result = sd_bus_message_read_array(message_, SD_BUS_TYPE_BYTE, &data, &size);
          result < 0) {
        return readError(result);
      }
      const auto* bytes = static_cast<const std::uint8_t*>(data);
      value.emplace(Bytes(bytes, bytes + take(size)));
      return std::nullopt;
    }
    const std::string_view element(contents);
    if (element.front() != SD_BUS_TYPE_DICT_ENTRY_BEGIN) {
      return inside(SD_BUS_TYPE_ARRAY, contents, [&] { return list(value); });
    }
    const std::string entry(element.substr(1, element.size() - 2));
    return inside(SD_BUS_TYPE_ARRAY, contents, [&] { return dictionary(entry.c_str(), value); });
  }

  ErrorOrNone dictionary(const char* entryContents, std::optional<Value>& value) {
    Dictionary entries;
    while (true) {
      const int entered =
          sd_bus_message_enter_container(message_, SD_BUS_TYPE_DICT_ENTRY, entryContents);
      auto error = entered < 0 ? ErrorOrNone(readError(entered)) : std::nullopt;
      if (entered > 0) {
        error = restOfContainer([&] { return entryInto(entries, entryContents[0]); });
      }
      if (error || entered == 0) {
        value.emplace(std::move(entries));
        return error;
      }
    }
  }

  ErrorOrNone entryInto(Dictionary& entries, char keyType) {
    count_ += 2;  // the entry and its key; next() looks at the count
    std::optional<Value> key;
    if (auto error = basic(keyType, key)) {
      return error;
    }
    std::optional<Value> value;
    auto error = variant(value);
    if (value) {
      const auto* text = key->text();
      entries.insert_or_assign(text != nullptr ? *text : std::to_string(key->longValue()),
                               std::move(*value));
    }
    return error;
  }

  /// How much is kept of a text or data of so many bytes.
  std::size_t take(std::size_t bytes) {
    const std::size_t taken = std::min({bytes, longestText_, textLeft_});
    textLeft_ -= taken;
    return taken;
  }

  ErrorOrNone text(char type, std::optional<Value>& value) {
    const char* content = nullptr;
    if (const int result = sd_bus_message_read_basic(message_, type, &content); result < 0) {
      // libsystemd takes no text with noncharacters, which the bus lets through.
      value.emplace(kReplacementCharacter);
      return readError(result);
    }
    const std::string_view whole(content);
    value.emplace(utf8Prefix(whole, take(whole.size())));
    return std::nullopt;
  }

  /// The type is that of what stands next, and T what sd-bus reads it as.
  template <typename T>
  ErrorOrNone read(char type, std::optional<Value>& value) {
    T content{};
    if (const int result = sd_bus_message_read_basic(message_, type, &content); result < 0) {
      return readError(result);
    }
    value.emplace(content);
    return std::nullopt;
  }

  ErrorOrNone basic(char type, std::optional<Value>& value) {
    switch (type) {
      case SD_BUS_TYPE_BYTE:
        return read<std::uint8_t>(type, value);
      case SD_BUS_TYPE_INT16:
        return read<std::int16_t>(type, value);
      case SD_BUS_TYPE_UINT16:
        return read<std::uint16_t>(type, value);
      case SD_BUS_TYPE_INT32:
        return read<std::int32_t>(type, value);
      case SD_BUS_TYPE_UINT32:
        return read<std::uint32_t>(type, value);
      case SD_BUS_TYPE_INT64:
        return read<std::int64_t>(type, value);
      case SD_BUS_TYPE_UINT64:
        return read<std::uint64_t>(type, value);
      case SD_BUS_TYPE_DOUBLE:
        return read<double>(type, value);
      case SD_BUS_TYPE_BOOLEAN: {
        auto error = read<int>(type, value);
        if (!error) {
          value.emplace(value->longValue() != 0);
        }
        return error;
      }
      case SD_BUS_TYPE_STRING:
      case SD_BUS_TYPE_OBJECT_PATH:
      case SD_BUS_TYPE_SIGNATURE:
        return text(type, value);
      case SD_BUS_TYPE_UNIX_FD: {
        const int result = sd_bus_message_skip(message_, "h");
        value.emplace(-1);
        return result < 0 ? ErrorOrNone(readError(result)) : std::nullopt;
      }
      default:
        return Error{EBADMSG, fmt::format("The message has an unknown type \"{}\"", type)};
    }
  }

  sd_bus_message* message_;
  std::size_t longestText_;
  std::size_t textLeft_;
  int depth_ = 0;
  int count_ = 0;
};

// The first complete type of a signature, empty where there is none.
std::string_view firstType(std::string_view signature) {
  if (signature.empty()) {
    return {};
  }
  const char type = signature.front();
  if (type == SD_BUS_TYPE_ARRAY) {
    const auto element = firstType(signature.substr(1));
    return element.empty() ? std::string_view() : signature.substr(0, 1 + element.size());
  }
  char end = '\0';
  if (type == SD_BUS_TYPE_STRUCT_BEGIN) {
    end = SD_BUS_TYPE_STRUCT_END;
  } else if (type == SD_BUS_TYPE_DICT_ENTRY_BEGIN) {
    end = SD_BUS_TYPE_DICT_ENTRY_END;
  } else {
    return std::string_view("ybnqiuxtdsoghv").find(type) == std::string_view::npos
               ? std::string_view()
               : signature.substr(0, 1);
  }
  std::size_t size = 1;
  while (size < signature.size() && signature[size] != end) {
    const auto member = firstType(signature.substr(size));
    if (member.empty()) {
      return {};
    }
    size += member.size();
  }
  return size < signature.size() ? signature.substr(0, size + 1) : std::string_view();
}

struct VariantType {
  std::string_view operator()(bool) const { return "b"; }
  std::string_view operator()(std::int64_t value) const {
    using Narrow = std::numeric_limits<std::int32_t>;
    return value >= Narrow::min() && value <= Narrow::max() ? "i" : "x";
  }
  std::string_view operator()(double) const { return "d"; }
  std::string_view operator()(const std::string&) const { return "s"; }
  std::string_view operator()(const Bytes&) const { return "ay"; }
  std::string_view operator()(Date) const { return "x"; }
  std::string_view operator()(const Array&) const { return "av"; }
  std::string_view operator()(const Dictionary&) const { return "a{sv}"; }
};

class Writer {
 public:
  explicit Writer(sd_bus_message* message) : message_(message) {}

  ErrorOrNone append(std::string_view type, const Value& value) {
    switch (type.front()) {
      case SD_BUS_TYPE_BYTE:
        return integer<std::uint8_t>(type, value);
      case SD_BUS_TYPE_INT16:
        return integer<std::int16_t>(type, value);
      case SD_BUS_TYPE_UINT16:
        return integer<std::uint16_t>(type, value);
      case SD_BUS_TYPE_INT32:
        return integer<std::int32_t>(type, value);
      case SD_BUS_TYPE_UINT32:
        return integer<std::uint32_t>(type, value);
      case SD_BUS_TYPE_INT64:
        return integer<std::int64_t>(type, value);
      case SD_BUS_TYPE_UINT64:
        return integer<std::uint64_t>(type, value);
      case SD_BUS_TYPE_BOOLEAN:
        if (const auto* flag = std::get_if<bool>(&value.variant())) {
          return basic(type, static_cast<int>(*flag));
        }
        return misfit(value, type);
      case SD_BUS_TYPE_DOUBLE:
        return real(type, value);
      case SD_BUS_TYPE_STRING:
      case SD_BUS_TYPE_OBJECT_PATH:
      case SD_BUS_TYPE_SIGNATURE:
        if (value.text() != nullptr) {
          const std::string text = busText(*value.text());
          return check(sd_bus_message_append_basic(message_, type.front(), text.c_str()));
        }
        return misfit(value, type);
      case SD_BUS_TYPE_VARIANT: {
        const auto inner = std::visit(VariantType{}, value.variant());
        return inside(SD_BUS_TYPE_VARIANT, inner, [&] { return append(inner, value); });
      }
      case SD_BUS_TYPE_ARRAY:
        return array(type, value);
      case SD_BUS_TYPE_STRUCT_BEGIN:
        return structure(type, value);
      default:
        return misfit(value, type);
    }
  }

 private:
  static ErrorOrNone check(int result) {
    return result < 0 ? ErrorOrNone(writeError(result)) : std::nullopt;
  }

  template <typename Raw>
  ErrorOrNone basic(std::string_view type, Raw raw) {
    return check(sd_bus_message_append_basic(message_, type.front(), &raw));
  }

  template <typename Integer>
  ErrorOrNone integer(std::string_view type, const Value& value) {
    std::int64_t number = 0;
    if (const auto* integer = std::get_if<std::int64_t>(&value.variant())) {
      number = *integer;
    } else if (value.date() != nullptr) {
      number = std::chrono::floor<std::chrono::seconds>(*value.date()).time_since_epoch().count();
    } else {
      return misfit(value, type);
    }
    if constexpr (sizeof(Integer) < sizeof number) {
      if (number < std::numeric_limits<Integer>::min() ||
          number > std::numeric_limits<Integer>::max()) {
        return Error{ERANGE,
                     fmt::format("{} is out of the range of the type \"{}\"", number, type)};
      }
    }
    return basic(type, static_cast<Integer>(number));
  }

  ErrorOrNone real(std::string_view type, const Value& value) {
    if (const auto* number = std::get_if<double>(&value.variant())) {
      return basic(type, *number);
    }
    if (const auto* number = std::get_if<std::int64_t>(&value.variant())) {
      return basic(type, static_cast<double>(*number));
    }
    return misfit(value, type);
  }

  template <typename Content>
  ErrorOrNone inside(char container, std::string_view contents, Content content) {
    if (++depth_ > kMaximumBusDepth) {
      return tooMuch("too deeply nested values");
    }
    if (auto error = check(
            sd_bus_message_open_container(message_, container, std::string(contents).c_str()))) {
      return error;
    }
    if (auto error = content()) {
      return error;
    }
    --depth_;
    return check(sd_bus_message_close_container(message_));
  }

  ErrorOrNone array(std::string_view type, const Value& value) {
    const auto element = type.substr(1);
    if (value.data() != nullptr && element.front() == SD_BUS_TYPE_BYTE) {
      return check(sd_bus_message_append_array(message_, SD_BUS_TYPE_BYTE, value.data()->data(),
                                               value.data()->size()));
    }
    if (value.dictionary() != nullptr && element.front() == SD_BUS_TYPE_DICT_ENTRY_BEGIN) {
      return inside(SD_BUS_TYPE_ARRAY, element,
                    [&] { return entries(element, *value.dictionary()); });
    }
    if (value.array() == nullptr || element.front() == SD_BUS_TYPE_DICT_ENTRY_BEGIN) {
      return misfit(value, type);
    }
    return inside(SD_BUS_TYPE_ARRAY, element, [&]() -> ErrorOrNone {
      for (const auto& item : *value.array()) {
        if (auto error = append(element, item)) {
          return error;
        }
      }
      return std::nullopt;
    });
  }

  // Number keys are decimal texts in a dictionary; the bus has them as numbers.
  static Value keyOfType(char type, const std::string& key) {
    const bool isText = type == SD_BUS_TYPE_STRING || type == SD_BUS_TYPE_OBJECT_PATH ||
                        type == SD_BUS_TYPE_SIGNATURE;
    return isText ? Value(key) : Value(Value(key).longValue());
  }

  ErrorOrNone entries(std::string_view entryType, const Dictionary& dictionary) {
    const auto contents = entryType.substr(1, entryType.size() - 2);
    for (const auto& [key, value] : dictionary) {
      const auto error = inside(
          SD_BUS_TYPE_DICT_ENTRY, contents, [&, &item = value, &name = key]() -> ErrorOrNone {
            if (auto keyError = append(contents.substr(0, 1), keyOfType(contents.front(), name))) {
              return keyError;
            }
            return append(contents.substr(1), item);
          });
      if (error) {
        return error;
      }
    }
    return std::nullopt;
  }

  ErrorOrNone structure(std::string_view type, const Value& value) {
    if (value.array() == nullptr) {
      return misfit(value, type);
    }
    const auto contents = type.substr(1, type.size() - 2);
    return inside(SD_BUS_TYPE_STRUCT, contents,
                  [&] { return appendAll(contents, *value.array()); });
  }

 public:
  ErrorOrNone appendAll(std::string_view signature, const Array& values) {
    for (const auto& value : values) {
      const auto type = firstType(signature);
      if (type.empty()) {
        return Error{EINVAL, "There are more values than types"};
      }
      if (auto error = append(type, value)) {
        return error;
      }
      signature.remove_prefix(type.size());
    }
    if (!signature.empty()) {
      return Error{EINVAL, fmt::format("There are no values for the types \"{}\"", signature)};
    }
    return std::nullopt;
  }

 private:
  sd_bus_message* message_;
  int depth_ = 0;
};

}  // namespace

Result<std::optional<Value>> readValue(sd_bus_message* message) {
  std::optional<Value> value;
  if (const auto error = Reader(message).next(value)) {
    return *error;
  }
  return value;
}

Result<Array> readValues(sd_bus_message* message) {
  Array values;
  if (const auto error = Reader(message).rest(values)) {
    return *error;
  }
  return values;
}

ErrorOrNone readBoundedValues(sd_bus_message* message, Array& values) {
  return Reader(message, true).rest(values);
}

ErrorOrNone appendValues(sd_bus_message* message, std::string_view signature, const Array& values) {
  return Writer(message).appendAll(signature, values);
}

Error errorFromBus(int result, const sd_bus_error* busError, std::string_view whatFailed) {
  if (busError != nullptr && sd_bus_error_is_set(busError) != 0) {
    return {sd_bus_error_get_errno(busError),
            fmt::format("{}: {}: {}", whatFailed, busError->name,
                        busError->message == nullptr ? "" : busError->message)};
  }
  return errorFromErrno(-result, std::string(whatFailed));
}

int setBusError(sd_bus_error* busError, const Error& error) {
  const std::string text = busText(error.localizedDescription);
  switch (error.code) {
    case EINVAL:
    case ERANGE:
      return sd_bus_error_set(busError, SD_BUS_ERROR_INVALID_ARGS, text.c_str());
    case EOPNOTSUPP:
      return sd_bus_error_set(busError, SD_BUS_ERROR_NOT_SUPPORTED, text.c_str());
    case EACCES:
    case EPERM:
      return sd_bus_error_set(busError, SD_BUS_ERROR_ACCESS_DENIED, text.c_str());
    default:
      return sd_bus_error_set(busError, SD_BUS_ERROR_FAILED, text.c_str());
  }
}

}  // namespace wrixel2::platform::linux
