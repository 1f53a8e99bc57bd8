// What XML can hold, and how it is written.
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// XML 1.0 cannot hold most control characters, not even escaped, nor bytes that are not UTF-8.
// `bytes` without them: what every text and attribute of a document is reduced to on writing, so
// that names out of a hostile app cannot break the document.
std::string xmlText(std::string_view bytes);

// Adds `text` as it stands between tags, with what would be markup escaped.
void appendXmlText(std::string* to, std::string_view text);
// The same as it stands between quotation marks, where line breaks and tabs would become blanks.
void appendXmlAttribute(std::string* to, std::string_view text);

// Whether `name` can be the name of an element.
bool isXmlName(const std::string& name);

}  // namespace tovrek
