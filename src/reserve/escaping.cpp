#include "reserve/escaping.h"

#include <array>

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

}  // namespace

std::string convertToEscapeString(std::string_view text) {
  std::string result(text);
  for (const Escape& escape : kEscapes) replaceAll(result, escape.plain, escape.code);
  return result;
}

std::string convertFromUnescapedString(std::string_view text) {
  std::string result(text);
  for (const Escape& escape : kEscapes) replaceAll(result, escape.code, escape.plain);
  return result;
}

}  // namespace tovrek
