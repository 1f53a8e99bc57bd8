// The encodings of XML documents.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// The encoding that the document's first line declares, in lower case; empty for none. Only for
// documents whose first line is in ASCII.
std::string declaredEncoding(std::string_view document);

// The document in UTF-8: as it is, or converted into `storage` by the C library's tables. Which
// encoding it has, tell its first bytes (UTF-16 and UTF-32) or its declaration. None where the
// library does not know the encoding, or where the bytes are not in it.
std::optional<std::string_view> documentInUtf8(std::string_view document, std::string* storage);

}  // namespace tovrek
