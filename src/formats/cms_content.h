// What is inside a CMS message (RFC 5652).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

// The content of a signed or plain data message in DER or BER (indefinite lengths, strings in
// pieces). Signatures are not looked at. An empty string for a message signed apart from its
// content; none, with the reason, for anything else.
std::optional<std::string> cmsContent(std::string_view message, ErrorText* error);

// Whether the content lies elsewhere: true for a readable message that carries none.
bool isDetached(std::string_view message);

}  // namespace tovrek
