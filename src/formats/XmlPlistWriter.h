// Writing property lists as XML, as whole values or piece by piece: seals of large bundles are too
// long to build as values first.
#pragma once

#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek {

// The two forms that are in use. Readers take either; what is compared or hashed as text keeps its
// own.
enum class XmlPlistLayout {
  kFile,       // keys in the dictionary's order, "<dict/>" for an empty one, "0.0" for zero
  kSignature,  // keys sorted by their bytes, empty dictionaries in two lines, "0" for zero
};

class XmlPlistWriter {
 public:
  explicit XmlPlistWriter(XmlPlistLayout layout);

  void beginDictionary() { open("dict"); }
  void endDictionary() { close("dict"); }
  void beginArray() { open("array"); }
  void endArray() { close("array"); }
  void key(std::string_view text) { element("key", text); }
  void string(std::string_view text) { element("string", text); }
  void boolean(bool flag) { line(flag ? "<true/>" : "<false/>"); }
  void data(std::string_view bytes);
  // Any value.
  void value(const PlistValue& value);

  // The whole document.
  std::string finish();

 private:
  struct Visitor;

  void line(std::string_view text);
  void open(std::string_view name);
  void close(std::string_view name);
  void element(std::string_view name, std::string_view text);
  void real(double number);
  void date(const PlistValue::Date& date);
  void array(const PlistValue::Array& array);
  void dictionary(const PlistDictionary& dictionary);

  XmlPlistLayout layout_;
  std::string text_;
  size_t depth_ = 0;
};

}  // namespace tovrek
