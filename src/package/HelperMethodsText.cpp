// Text forms: obfuscation, escaping, descriptions of values.
#include <fmt/format.h>

#include <array>
#include <utility>

#include "formats/Digest.h"
#include "formats/utf8.h"
#include "host/clock.h"
#include "package/HelperMethods.h"

namespace tovrek {
namespace {

struct Escape {
  std::string_view plain;
  std::string_view code;
};
// In the order of replacement. Without the percent sign, which servers expect to come as it is.
constexpr std::array<Escape, 17> kEscapes = {{{"$", "%24"},
                                              {"&", "%26"},
                                              {"+", "%2B"},
                                              {",", "%2C"},
                                              {"/", "%2F"},
                                              {":", "%3A"},
                                              {";", "%3B"},
                                              {"=", "%3D"},
                                              {"?", "%3F"},
                                              {"@", "%40"},
                                              {" ", "%20"},
                                              {"\t", "%09"},
                                              {"#", "%23"},
                                              {"<", "%3C"},
                                              {">", "%3E"},
                                              {"\"", "%22"},
                                              {"\n", "%0A"}}};

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// Lists as "(a, b)", dictionaries as "{k = v; }".
struct Describer {
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(bool flag) const { return flag ? "1" : "0"; }
  std::string operator()(int64_t number) const { return fmt::format("{}", number); }
  std::string operator()(uint64_t number) const { return fmt::format("{}", number); }
  std::string operator()(double number) const { return fmt::format("{}", number); }
  std::string operator()(PlistValue::Date date) const {
    return dateDescription(date.secondsSince1970);
  }
  std::string operator()(const PlistValue::Data& data) const {
    return fmt::format("<{}>", hexLower(data.bytes));
  }
  std::string operator()(PlistValue::Uid uid) const { return fmt::format("{}", uid.value); }
  std::string operator()(const PlistValue::Array& array) const {
    std::string text;
    for (const PlistValue& entry : array) {
      if (!text.empty()) text += ", ";
      text += HelperMethods::returnString(&entry);
    }
    return fmt::format("({})", text);
  }
  std::string operator()(const PlistDictionary& dictionary) const {
    std::string text;
    for (const auto& [key, value] : dictionary) {
      text += fmt::format("{} = {}; ", key, HelperMethods::returnString(&value));
    }
    return fmt::format("{{{}}}", text);
  }
};

}  // namespace

std::optional<std::string> HelperMethods::obfuscate(std::string_view text, std::string_view key) {
  std::string result(text);
  // The key repeats after its length in characters, so that of a key beyond ASCII only the first
  // bytes are used.
  const size_t period = utf16Length(key);
  if (period > 0) {
    for (size_t i = 0; i < result.size(); i++) {
      result[i] = static_cast<char>(result[i] ^ key[i % period]);
    }
  }
  if (!isUtf8(result)) return std::nullopt;
  return result;
}

std::string HelperMethods::convertToEscapeString(std::string_view text) {
  std::string result(text);
  for (const Escape& escape : kEscapes) replaceAll(result, escape.plain, escape.code);
  return result;
}

std::string HelperMethods::convertFromUnescapedString(std::string_view text) {
  std::string result(text);
  for (const Escape& escape : kEscapes) replaceAll(result, escape.code, escape.plain);
  return result;
}

std::string HelperMethods::returnString(const PlistValue* value) {
  return value == nullptr ? std::string() : value->visit(Describer());
}

}  // namespace tovrek
