// Writing property lists in both forms. This is the one file that knows libplist.
#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

#include "formats/PlistValue.h"
#include "formats/XmlDocument.h"
#include "formats/XmlPlistWriter.h"
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

// By way of XML, for what the library's own makers cannot take.
Node nodeThroughXml(const PlistValue& value) {
  XmlPlistWriter writer(XmlPlistLayout::kFile);
  writer.value(value);
  const std::string document = writer.finish();
  plist_t node = nullptr;
  plist_from_xml(document.data(), static_cast<uint32_t>(document.size()), &node);
  return Node(node);
}

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

bool writePlist(const std::string& path, const PlistValue& value, PlistFormat format,
                ErrorText* error) {
  return writeFileAtomically(path, serializePlist(value, format), error);
}

}  // namespace tovrek
