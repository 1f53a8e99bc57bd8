// JSON text (RFC 8259), value by value.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tovrek::inspect {

// Indented by two blanks. Whoever calls it keeps begin and end in pairs.
class JsonWriter {
 public:
  JsonWriter& beginObject(std::string_view key = {}) { return open(key, '{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray(std::string_view key = {}) { return open(key, '['); }
  JsonWriter& endArray() { return close(']'); }
  // Members of an object, or, with an empty key, of an array.
  JsonWriter& text(std::string_view key, std::string_view value);
  JsonWriter& number(std::string_view key, uint64_t value);
  JsonWriter& flag(std::string_view key, bool value);
  JsonWriter& null(std::string_view key);

  std::string take() { return std::move(out_) + "\n"; }

 private:
  JsonWriter& open(std::string_view key, char bracket);
  JsonWriter& close(char bracket);
  void start(std::string_view key);

  std::string out_;
  size_t depth_ = 0;
  bool isFirst_ = true;
};

}  // namespace tovrek::inspect
