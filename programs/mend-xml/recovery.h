// Damaged XML, as far as it makes sense.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek::mend_xml {

// A well-formed document in UTF-8 with what libxml2 can make out of the bytes; entities that the
// document declares itself are replaced by what they stand for. None, with the reason, for what has
// no element, exceeds the limits, declares anything outside of the document, or would grow without
// a bound: recovery must not get over these by leaving things out.
std::optional<std::string> recoveredXml(std::string_view bytes, ErrorText* error);

}  // namespace tovrek::mend_xml
