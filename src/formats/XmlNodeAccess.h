// What the XML sources share about nodes.
#pragma once

#include <libxml/tree.h>

#include "formats/XmlElement.h"

namespace tovrek {

// Gives the new, empty `node` the attributes, text and children of `element`.
void fillElement(xmlNodePtr node, const XmlElement& element);

}  // namespace tovrek
