#include "signing/XmlPlistWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "formats/WEX_Base64.h"
#include "signing/bytes.h"

namespace tovrek::signing {
namespace {

constexpr std::string_view kProlog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
// Base64 lines shrink with the indentation, a tab counting eight.
constexpr size_t kDataWidth = 76;
constexpr size_t kTabWidth = 8;

std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

XmlPlistWriter::XmlPlistWriter() : text_(kProlog) {}

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
  text_.append(escaped(text)).append("</").append(name).append(">\n");
}

void XmlPlistWriter::data(std::string_view bytes) {
  line("<data>");
  const std::string digits = WEX_Base64::encodeWithoutLinebreaks(bytes);
  const size_t indent = std::min(depth_ * kTabWidth, kDataWidth - 4);
  const size_t width = (kDataWidth - indent) / 4 * 4;
  for (size_t at = 0; at < digits.size(); at += width) {
    line(std::string_view(digits).substr(at, width));
  }
  line("</data>");
}

void XmlPlistWriter::dictionary(const PlistDictionary& dictionary) {
  std::vector<const PlistDictionary::Entry*> entries;
  for (const auto& entry : dictionary) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  beginDictionary();
  for (const auto* entry : entries) {
    key(entry->first);
    value(entry->second);
  }
  endDictionary();
}

void XmlPlistWriter::value(const PlistValue& value) {
  if (const auto* nested = value.dictionary()) {
    dictionary(*nested);
  } else if (const auto* items = value.array()) {
    beginArray();
    for (const PlistValue& item : *items) this->value(item);
    endArray();
  } else if (const auto* text = value.string()) {
    string(*text);
  } else if (const bool* flag = value.boolean()) {
    boolean(*flag);
  } else if (const auto* bytes = value.data()) {
    data(bytes->bytes);
  } else if (const auto* real = value.as<double>()) {
    line(fmt::format("<real>{:.17g}</real>", *real));
  } else if (const auto number = value.as<int64_t>()) {
    line(fmt::format("<integer>{}</integer>", *number));
  } else if (const auto wide = value.as<uint64_t>()) {
    line(fmt::format("<integer>{}</integer>", *wide));
  }
}

std::string XmlPlistWriter::finish() {
  return std::move(text_) + "</plist>\n";
}

}  // namespace tovrek::signing
