// XML that asks for too much.
#pragma once

#include <string>

namespace tovrek::test {

// As many elements, each in the one before it.
inline std::string nested(size_t depth) {
  std::string text;
  for (size_t i = 0; i < depth; ++i) text += "<a>";
  for (size_t i = 0; i < depth; ++i) text += "</a>";
  return text;
}

// A few hundred bytes that stand for gigabytes.
inline std::string laughs() {
  std::string text = "<!DOCTYPE a [<!ENTITY e0 '" + std::string(100, 'x') + "'>";
  for (int i = 1; i < 10; ++i) {
    text += "<!ENTITY e" + std::to_string(i) + " '";
    for (int k = 0; k < 10; ++k) text += "&e" + std::to_string(i - 1) + ";";
    text += "'>";
  }
  return text + "]><a>&e9;</a>";
}

// An element with attributes "a0" and so on, of which libxml2 compares each with each.
inline std::string attributes(int count, const std::string& quote = "'") {
  std::string text = "<a";
  for (int i = 0; i < count; ++i) text += " a" + std::to_string(i) + "=" + quote + ">" + quote;
  return text + "/>";
}

}  // namespace tovrek::test
