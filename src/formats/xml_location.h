// As much of XPath 1.0 as documents of ours are asked by.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "formats/XmlTree.h"

namespace tovrek {

// The elements at a location path, in document order. It begins above the root element and has
// steps like "name", "*", "name[2]" and "name[@attribute='value']", one below the other ("/"), the
// first also anywhere below ("//"). Names have no prefix, and mean elements without a namespace.
// None for any other expression.
std::optional<std::vector<XmlTree*>> elementsAt(XmlTree& document, std::string_view path);

}  // namespace tovrek
