// Trees of XML documents from their bytes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "formats/XmlTree.h"

namespace tovrek {

// Null with a clause like "line 3: mismatched tag" for what is not well formed, exceeds the limits,
// has elements too deep inside each other or declares anything outside of it.
std::unique_ptr<XmlTree> readXmlTree(std::string_view bytes, std::string* reason);

}  // namespace tovrek
