// Trees of XML documents as text.
#pragma once

#include <string>

#include "formats/XmlTree.h"

namespace tovrek {

// With the declaration of version 1.0 and UTF-8. Indented, each element stands in a line of its
// own, four blanks further in than the one around it, except inside of elements with a text.
std::string writeXmlTree(const XmlTree& document, bool indented);

}  // namespace tovrek
