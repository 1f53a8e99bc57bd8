// URL texts, as far as a store address is checked (RFC 3986).
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// Whether the text is a URL of the form scheme://host..., made only of characters that URLs
// allow.
bool isUrlWithSchemeAndHost(std::string_view text);

// Every byte that a URL does not allow as "%XX"; "%", "#", "[" and "]" too, as they cannot stand
// for themselves in a path.
std::string percentEscaped(std::string_view text);

}  // namespace tovrek
