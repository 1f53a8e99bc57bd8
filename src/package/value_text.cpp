#include "package/value_text.h"

#include <fmt/format.h>

#include "formats/Digest.h"
#include "host/clock.h"

namespace tovrek {
namespace {

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
      text += returnString(&entry);
    }
    return fmt::format("({})", text);
  }
  std::string operator()(const PlistDictionary& dictionary) const {
    std::string text;
    for (const auto& [key, value] : dictionary) {
      text += fmt::format("{} = {}; ", key, returnString(&value));
    }
    return fmt::format("{{{}}}", text);
  }
};

}  // namespace

std::string returnString(const PlistValue* value) {
  return value == nullptr ? std::string() : value->visit(Describer());
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  for (size_t at = 0;;) {
    const size_t next = text.find(from, at);
    result += text.substr(at, next - at);
    if (next == std::string_view::npos) return result;
    result += to;
    at = next + from.size();
  }
}

}  // namespace tovrek
