// Writing property lists as XML, piece by piece and in Apple's own layout: the list of hashes in a
// signature is compared as text, and seals of large bundles are too long to build as values.
#pragma once

#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek::signing {

class XmlPlistWriter {
 public:
  XmlPlistWriter();

  void beginDictionary() { open("dict"); }
  void endDictionary() { close("dict"); }
  void beginArray() { open("array"); }
  void endArray() { close("array"); }
  void key(std::string_view text) { element("key", text); }
  void string(std::string_view text) { element("string", text); }
  void boolean(bool flag) { line(flag ? "<true/>" : "<false/>"); }
  void data(std::string_view bytes);
  // Any value, dictionaries sorted by the keys' bytes.
  void value(const PlistValue& value);

  // The whole document.
  std::string finish();

 private:
  void line(std::string_view text);
  void open(std::string_view name);
  void close(std::string_view name);
  void element(std::string_view name, std::string_view text);
  void dictionary(const PlistDictionary& dictionary);

  std::string text_;
  size_t depth_ = 0;
};

}  // namespace tovrek::signing
