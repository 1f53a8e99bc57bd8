#include "formats/XmlPlistWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "formats/base64.h"
#include "formats/xml_text.h"
#include "host/clock.h"

namespace tovrek {
namespace {

constexpr std::string_view kProlog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
// Base64 lines shrink with the indentation, a tab counting eight; further in than this they are
// neither indented nor shortened any more.
constexpr size_t kDataWidth = 76;
constexpr size_t kTabWidth = 8;
constexpr size_t kDeepestData = 8;

}  // namespace

struct XmlPlistWriter::Visitor {
  XmlPlistWriter& to;

  void operator()(const std::string& text) const { to.string(text); }
  void operator()(bool flag) const { to.boolean(flag); }
  void operator()(int64_t number) const { integer(number); }
  void operator()(uint64_t number) const { integer(number); }
  void operator()(double number) const { to.real(number); }
  void operator()(const PlistValue::Date& date) const { to.date(date); }
  void operator()(const PlistValue::Data& data) const { to.data(data.bytes); }
  void operator()(const PlistValue::Array& array) const { to.array(array); }
  void operator()(const PlistDictionary& dictionary) const { to.dictionary(dictionary); }
  // XML has no element for these.
  void operator()(const PlistValue::Uid& uid) const {
    to.beginDictionary();
    to.key("CF$UID");
    integer(uid.value);
    to.endDictionary();
  }

  template <class T>
  void integer(T number) const {
    to.line(fmt::format("<integer>{}</integer>", number));
  }
};

XmlPlistWriter::XmlPlistWriter(XmlPlistLayout layout) : layout_(layout), text_(kProlog) {}

void XmlPlistWriter::line(std::string_view text) {
  text_.append(depth_, '\t').append(text).push_back('\n');
}

void XmlPlistWriter::open(std::string_view name) {
  text_.append(depth_++, '\t').append("<").append(name).append(">\n");
}

void XmlPlistWriter::close(std::string_view name) {
  text_.append(--depth_, '\t').append("</").append(name).append(">\n");
}

void XmlPlistWriter::element(std::string_view name, std::string_view text) {
  text_.append(depth_, '\t').append("<").append(name).append(">");
  appendXmlText(&text_, text);
  text_.append("</").append(name).append(">\n");
}

void XmlPlistWriter::real(double number) {
  if (std::isnan(number)) return element("real", "nan");
  if (std::isinf(number)) return element("real", number > 0 ? "+infinity" : "-infinity");
  const bool isZero = number == 0 && layout_ == XmlPlistLayout::kFile;
  element("real", isZero ? "0.0" : fmt::format("{:.17g}", number));
}

void XmlPlistWriter::date(const PlistValue::Date& date) {
  std::string text = dateDescription(date.secondsSince1970);  // yyyy-MM-dd HH:mm:ss +0000
  text.resize(text.find(" +"));
  text[text.find(' ')] = 'T';
  text.erase(0, text.find_first_not_of('0'));  // of years before 1000
  element("date", text + "Z");
}

void XmlPlistWriter::data(std::string_view bytes) {
  line("<data>");
  const std::string digits = base64Of(bytes);
  const size_t indent = std::min(depth_, kDeepestData);
  const size_t width = (kDataWidth - indent * kTabWidth) / 4 * 4;
  for (size_t at = 0; at < digits.size(); at += width) {
    text_.append(indent, '\t').append(digits, at, width).push_back('\n');
  }
  line("</data>");
}

void XmlPlistWriter::array(const PlistValue::Array& array) {
  if (array.empty() && layout_ == XmlPlistLayout::kFile) return line("<array/>");
  beginArray();
  for (const PlistValue& item : array) value(item);
  endArray();
}

void XmlPlistWriter::dictionary(const PlistDictionary& dictionary) {
  if (dictionary.empty() && layout_ == XmlPlistLayout::kFile) return line("<dict/>");
  std::vector<const PlistDictionary::Entry*> entries;
  for (const auto& entry : dictionary) entries.push_back(&entry);
  if (layout_ == XmlPlistLayout::kSignature) {
    std::ranges::sort(entries, {},
                      [](const auto* entry) { return std::string_view(entry->first); });
  }
  beginDictionary();
  for (const auto* entry : entries) {
    key(entry->first);
    value(entry->second);
  }
  endDictionary();
}

void XmlPlistWriter::value(const PlistValue& value) {
  value.visit(Visitor{*this});
}

std::string XmlPlistWriter::finish() {
  return std::move(text_) + "</plist>\n";
}

}  // namespace tovrek
