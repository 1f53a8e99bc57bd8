// The encodings of XML documents.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// The encoding that the document's first line declares, in lower case; empty for none. Only for
// documents whose first line is in ASCII.
std::string declaredEncoding(std::string_view document);

// What `bytes` of that encoding are in UTF-8, by the C library's tables. None where it does not
// know the encoding, or where the bytes are not in it.
std::optional<std::string> utf8From(std::string_view bytes, const std::string& encoding);

}  // namespace tovrek
