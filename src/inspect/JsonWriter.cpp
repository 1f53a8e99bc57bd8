#include "inspect/JsonWriter.h"

#include "inspect/text.h"

namespace tovrek::inspect {

void JsonWriter::start(std::string_view key) {
  if (!isFirst_) out_ += ',';
  if (depth_ != 0) out_ += '\n';
  out_.append(depth_ * 2, ' ');
  if (!key.empty()) out_ += '"' + forJson(key) + "\": ";
  isFirst_ = false;
}

JsonWriter& JsonWriter::open(std::string_view key, char bracket) {
  start(key);
  out_ += bracket;
  ++depth_;
  isFirst_ = true;
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  --depth_;
  if (!isFirst_) {
    out_ += '\n';
    out_.append(depth_ * 2, ' ');
  }
  out_ += bracket;
  isFirst_ = false;
  return *this;
}

JsonWriter& JsonWriter::text(std::string_view key, std::string_view value) {
  start(key);
  out_ += '"' + forJson(value) + '"';
  return *this;
}

JsonWriter& JsonWriter::number(std::string_view key, uint64_t value) {
  start(key);
  out_ += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::flag(std::string_view key, bool value) {
  start(key);
  out_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::null(std::string_view key) {
  start(key);
  out_ += "null";
  return *this;
}

}  // namespace tovrek::inspect
