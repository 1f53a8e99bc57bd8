#include "formats/xml_encoding.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <utility>

namespace tovrek {
namespace {

class Conversion {
 public:
  explicit Conversion(const std::string& encoding)
      : state_(::iconv_open("UTF-8", encoding.c_str())) {}
  ~Conversion() {
    if (isKnown()) ::iconv_close(state_);
  }
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // iconv_open() gives the number -1 in the form of a pointer.
  bool isKnown() const { return reinterpret_cast<intptr_t>(state_) != -1; }

  std::optional<std::string> convert(std::string_view bytes) {
    std::string result;
    char piece[4096];
    char* from = const_cast<char*>(bytes.data());  // iconv() does not write to it
    size_t left = bytes.size();
    while (left > 0) {
      char* to = piece;
      size_t room = sizeof piece;
      const bool done = ::iconv(state_, &from, &left, &to, &room) != static_cast<size_t>(-1);
      if (!done && (errno != E2BIG || to == piece)) return std::nullopt;
      result.append(piece, static_cast<size_t>(to - piece));
    }
    return result;
  }

 private:
  iconv_t state_;
};

std::optional<std::string> utf8From(std::string_view bytes, const std::string& encoding) {
  // Names in XML are of such letters; what iconv() takes behind a slash would have it drop bytes.
  const auto belongs = [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
  };
  if (!std::ranges::all_of(encoding, belongs)) return std::nullopt;
  Conversion conversion(encoding);
  if (!conversion.isKnown()) return std::nullopt;
  return conversion.convert(bytes);
}

// By a byte order mark, or by what "<" looks like; empty for what is written in single bytes.
std::string wideEncoding(std::string_view document) {
  using namespace std::string_view_literals;
  static constexpr std::pair<std::string_view, const char*> kStarts[] = {
      {"\xFF\xFE\0\0"sv, "utf-32le"}, {"<\0\0\0"sv, "utf-32le"},  {"\0\0\xFE\xFF"sv, "utf-32be"},
      {"\0\0\0<"sv, "utf-32be"},      {"\xFF\xFE"sv, "utf-16le"}, {"<\0"sv, "utf-16le"},
      {"\xFE\xFF"sv, "utf-16be"},     {"\0<"sv, "utf-16be"},
  };
  for (const auto& [start, encoding] : kStarts) {
    if (document.starts_with(start)) return encoding;
  }
  return "";
}

}  // namespace

std::string declaredEncoding(std::string_view document) {
  const std::string_view line = document.substr(0, document.find('>'));
  const size_t at = line.find("encoding");
  const size_t start = at == line.npos ? at : line.find_first_of("\"'", at);
  if (start == line.npos) return "";
  const std::string_view rest = line.substr(start + 1);
  std::string name(rest.substr(0, rest.find(line[start])));
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

std::optional<std::string_view> documentInUtf8(std::string_view document, std::string* storage) {
  std::string encoding = wideEncoding(document);
  if (encoding.empty()) encoding = declaredEncoding(document);
  if (encoding.empty() || encoding == "utf-8") return document;
  auto utf8 = utf8From(document, encoding);
  if (!utf8) return std::nullopt;
  *storage = std::move(*utf8);
  return *storage;
}

}  // namespace tovrek
