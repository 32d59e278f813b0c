#include "platform/linux/LinuxPropertyLists.h"

#include <cmath>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include <errno.h>
#include <fmt/format.h>
#include <plist/plist.h>

#include "platform/FileManager.h"
#include "platform/linux/BinaryPropertyList.h"
#include "platform/linux/BusText.h"
#include "platform/linux/PropertyListLimits.h"
#include "platform/linux/XmlPropertyList.h"

namespace wrixel2::platform::linux {
namespace {

using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, decltype(&plist_free)>;

Node owned(plist_t node) { return {node, plist_free}; }

Error unwritable(std::string_view what) {
  return {EINVAL, fmt::format("{} cannot be part of a property list", what)};
}

Result<Node> nodeFromValue(const Value& value, int depth);

struct NodeMaker {
  int depth;

  Result<Node> operator()(bool value) const {
    return owned(plist_new_bool(static_cast<std::uint8_t>(value)));
  }
  Result<Node> operator()(std::int64_t value) const {
    return owned(plist_new_uint(static_cast<std::uint64_t>(value)));
  }
  Result<Node> operator()(double value) const { return owned(plist_new_real(value)); }
  Result<Node> operator()(const std::string& value) const {
    if (!isBusText(value)) {
      return unwritable("A text that is not UTF-8 without NUL");
    }
    return owned(plist_new_string(value.c_str()));
  }
  Result<Node> operator()(const Bytes& value) const {
    return owned(plist_new_data(reinterpret_cast<const char*>(value.data()), value.size()));
  }
  Result<Node> operator()(Date value) const {
    constexpr Date kReferenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(value - kReferenceDate);
    using Range = std::numeric_limits<std::int32_t>;
    if (seconds.count() < Range::min() || seconds.count() > Range::max()) {
      return unwritable("A date more than 68 years from 2001");
    }
    const auto fraction = value - kReferenceDate - seconds;
    // What newer versions would rather have us call knows whole seconds alone.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return owned(plist_new_date(static_cast<std::int32_t>(seconds.count()),
                                static_cast<std::int32_t>(fraction.count())));
#pragma GCC diagnostic pop
  }
  Result<Node> operator()(const Array& values) const {
    auto array = owned(plist_new_array());
    for (const auto& value : values) {
      auto item = nodeFromValue(value, depth + 1);
      if (!item) {
        return item;
      }
      plist_array_append_item(array.get(), item->release());
    }
    return array;
  }
  Result<Node> operator()(const Dictionary& entries) const {
    auto dictionary = owned(plist_new_dict());
    for (const auto& [key, value] : entries) {
      if (!isBusText(key)) {
        return unwritable("A key that is not UTF-8 without NUL");
      }
      auto item = nodeFromValue(value, depth + 1);
      if (!item) {
        return item;
      }
      plist_dict_set_item(dictionary.get(), key.c_str(), item->release());
    }
    return dictionary;
  }
};

Result<Node> nodeFromValue(const Value& value, int depth) {
  if (depth > kMaximumPropertyListDepth) {
    return unwritable("So deeply nested a value");
  }
  return std::visit(NodeMaker{depth}, value.variant());
}

std::string_view textOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

Result<Dictionary> LinuxPropertyLists::dictionaryWithContentsOfFile(const std::string& path) const {
  const auto contents = files_.contentsAtPath(path);
  if (!contents) {
    return contents.error();
  }
  const auto unreadable = [&](std::string_view why) {
    return Error{EINVAL, fmt::format("{} is not a readable property list: {}", path, why)};
  };
  if (contents->size() > kMaximumPropertyListBytes) {
    return unreadable("it is larger than 1 MiB");
  }
  auto value = isBinaryPropertyList(*contents) ? valueFromBinaryPropertyList(*contents)
                                               : valueFromXmlPropertyList(textOf(*contents));
  if (!value) {
    return unreadable(value.error().localizedDescription);
  }
  if (value->dictionary() == nullptr) {
    return unreadable(fmt::format("it holds a value of kind {}", kindName(*value)));
  }
  return *value->dictionary();
}

ErrorOrNone LinuxPropertyLists::writeToFileAtomically(const std::string& path,
                                                      const Dictionary& dictionary) {
  const auto node = nodeFromValue(dictionary, 0);
  if (!node) {
    return node.error();
  }
  const auto present = files_.contentsAtPath(path);
  const bool isBinary = present && isBinaryPropertyList(*present);
  char* text = nullptr;
  std::uint32_t length = 0;
  if (isBinary) {
    plist_to_bin(node->get(), &text, &length);
  } else {
    plist_to_xml(node->get(), &text, &length);
  }
#ifdef WRIXEL2_PLIST_MEM_FREE
  const std::unique_ptr<char, decltype(&plist_mem_free)> held(text, plist_mem_free);
#else
  const std::unique_ptr<char, decltype(&plist_to_xml_free)> held(
      text, isBinary ? plist_to_bin_free : plist_to_xml_free);
#endif
  if (text == nullptr) {
    return unwritable("This dictionary");
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text);
  return files_.writeAtomically(path, ByteView(bytes, length));
}

}  // namespace wrixel2::platform::linux
