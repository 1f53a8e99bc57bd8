// Reading property lists in both forms, and writing the binary one. This is the one file that
// knows libplist.
#include <plist/plist.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

#include "formats/PlistValue.h"
#include "formats/XmlDocument.h"
#include "formats/XmlPlistWriter.h"
#include "formats/plist_depth.h"
#include "host/files.h"

namespace tovrek {
namespace {

struct NodeFreer {
  void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeFreer>;

struct MemoryFreer {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Memory = std::unique_ptr<T, MemoryFreer>;

constexpr const char* kNotAPropertyList =
    "The data couldn't be read because it isn't in the correct format.";

std::string xmlOf(plist_t node) {
  char* text = nullptr;
  uint32_t length = 0;
  plist_to_xml(node, &text, &length);
  const Memory<char> owner(text);
  return text == nullptr ? "" : std::string(text, length);
}

// By way of XML, for what the library's own makers cannot take.
Node nodeThroughXml(const PlistValue& value) {
  XmlPlistWriter writer(XmlPlistLayout::kFile);
  writer.value(value);
  const std::string document = writer.finish();
  plist_t node = nullptr;
  plist_from_xml(document.data(), static_cast<uint32_t>(document.size()), &node);
  return Node(node);
}

// What stands between <element> and </element> in a document of one node.
std::string elementText(const std::string& xml, const std::string& element) {
  const size_t open = xml.find("<" + element + ">");
  if (open == std::string::npos) return "";
  const size_t from = open + element.size() + 2;
  const size_t to = xml.find("</", from);
  return to == std::string::npos ? "" : xml.substr(from, to - from);
}

// --- libplist to values ---

// The library's own accessor counts in 32 bits and fails in 2038; its text form does not.
PlistValue dateFrom(plist_t node) {
  const std::string text = elementText(xmlOf(node), "date");
  std::tm parts{};
  int year = 0;
  if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%dZ", &year, &parts.tm_mon, &parts.tm_mday,
                  &parts.tm_hour, &parts.tm_min, &parts.tm_sec) != 6) {
    return PlistValue::Date{0};
  }
  parts.tm_year = year - 1900;
  parts.tm_mon -= 1;
  return PlistValue::Date{static_cast<double>(::timegm(&parts))};
}

// Negative numbers and those above 2^63 look alike in the library's 64 bits; its text tells.
PlistValue integerFrom(plist_t node) {
  uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  const auto asSigned = static_cast<int64_t>(bits);
  if (asSigned >= 0 || elementText(xmlOf(node), "integer").starts_with('-')) return asSigned;
  return bits;
}

// XML has no element for UIDs; their form there is a dictionary of one number.
std::optional<PlistValue> uidFrom(const PlistDictionary& dictionary) {
  if (dictionary.size() != 1) return std::nullopt;
  const PlistValue* value = dictionary.find("CF$UID");
  const int64_t* number = value != nullptr ? value->as<int64_t>() : nullptr;
  if (number == nullptr || *number < 0) return std::nullopt;
  return PlistValue::Uid{static_cast<uint64_t>(*number)};
}

PlistValue valueFrom(plist_t node);

PlistValue dictionaryFrom(plist_t node) {
  PlistDictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const Memory<void> owner(iterator);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    if (item == nullptr) break;
    const Memory<char> keyOwner(key);
    dictionary.set(key, valueFrom(item));
  }
  if (auto uid = uidFrom(dictionary)) return *uid;
  return dictionary;
}

PlistValue arrayFrom(plist_t node) {
  PlistValue::Array array;
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const Memory<void> owner(iterator);
  for (;;) {
    plist_t item = nullptr;
    plist_array_next_item(node, iterator, &item);
    if (item == nullptr) return array;
    array.push_back(valueFrom(item));
  }
}

PlistValue valueFrom(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return flag != 0;
    }
    case PLIST_UINT:
      return integerFrom(node);
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return number;
    }
    case PLIST_DATE:
      return dateFrom(node);
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* bytes = plist_get_data_ptr(node, &length);
      return PlistValue::Data{bytes == nullptr ? "" : std::string(bytes, length)};
    }
    case PLIST_UID: {
      uint64_t number = 0;
      plist_get_uid_val(node, &number);
      return PlistValue::Uid{number};
    }
    case PLIST_ARRAY:
      return arrayFrom(node);
    case PLIST_DICT:
      return dictionaryFrom(node);
    case PLIST_STRING:
    default: {
      char* text = nullptr;
      plist_get_string_val(node, &text);
      const Memory<char> owner(text);
      return std::string(text == nullptr ? "" : text);
    }
  }
}

// --- values to libplist ---

struct NodeMaker {
  plist_t operator()(const std::string& text) const { return plist_new_string(text.c_str()); }
  plist_t operator()(bool flag) const { return plist_new_bool(flag ? 1 : 0); }
  plist_t operator()(int64_t number) const { return plist_new_uint(static_cast<uint64_t>(number)); }
  plist_t operator()(uint64_t number) const {
    constexpr auto kLargestSigned = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (number <= kLargestSigned) return plist_new_uint(number);
    return nodeThroughXml(number).release();
  }
  plist_t operator()(double number) const { return plist_new_real(number); }
  plist_t operator()(const PlistValue::Date& date) const { return nodeThroughXml(date).release(); }
  plist_t operator()(const PlistValue::Data& data) const {
    return plist_new_data(data.bytes.data(), data.bytes.size());
  }
  plist_t operator()(const PlistValue::Uid& uid) const { return plist_new_uid(uid.value); }
  plist_t operator()(const PlistValue::Array& array) const;
  plist_t operator()(const PlistDictionary& dictionary) const;
};

plist_t NodeMaker::operator()(const PlistValue::Array& array) const {
  plist_t node = plist_new_array();
  for (const PlistValue& item : array) plist_array_append_item(node, item.visit(*this));
  return node;
}

plist_t NodeMaker::operator()(const PlistDictionary& dictionary) const {
  plist_t node = plist_new_dict();
  for (const auto& [key, value] : dictionary) {
    plist_dict_set_item(node, key.c_str(), value.visit(*this));
  }
  return node;
}

}  // namespace

std::optional<PlistValue> parsePlist(std::string_view bytes, ErrorText* error) {
  plist_t parsed = nullptr;
  // The library recurses over nested nodes: what would exhaust the stack is refused before.
  if (bytes.size() <= std::numeric_limits<uint32_t>::max() && plistDepthIsSane(bytes)) {
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  }
  const Node node(parsed);
  if (!node) {
    fail(error, kNotAPropertyList);
    return std::nullopt;
  }
  return valueFrom(node.get());
}

std::string serializePlist(const PlistValue& value, PlistFormat format) {
  if (format == PlistFormat::kXml) {
    XmlPlistWriter writer(XmlPlistLayout::kFile);
    writer.value(value);
    // Texts may hold what no XML reader would take again.
    return xmlText(writer.finish());
  }
  const Node node(value.visit(NodeMaker()));
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(node.get(), &bytes, &length);
  const Memory<char> owner(bytes);
  return bytes == nullptr ? "" : std::string(bytes, length);
}

std::optional<PlistDictionary> readPlistDictionary(const std::string& path, ErrorText* error) {
  std::string bytes;
  if (!readFile(path, &bytes, error)) return std::nullopt;
  std::optional<PlistValue> value = parsePlist(bytes, error);
  if (!value) return std::nullopt;
  if (value->dictionary() == nullptr) {
    fail(error, kNotAPropertyList);
    return std::nullopt;
  }
  return std::move(*value->dictionary());
}

bool writePlist(const std::string& path, const PlistValue& value, PlistFormat format,
                ErrorText* error) {
  return writeFileAtomically(path, serializePlist(value, format), error);
}

}  // namespace tovrek
