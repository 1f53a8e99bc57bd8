#include "programs/tovrek/url_rules.h"

#include <fmt/format.h>

#include <algorithm>

namespace tovrek {
namespace {

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// Unreserved and reserved characters without those that have a single place in a URL.
bool isPlain(char c) {
  return isLetter(c) || isDigit(c) || isOneOf(c, "-._~:/?@!$&'()*+,;=");
}

// Plain characters and complete "%XX" groups only.
bool hasOnlyUrlCharacters(std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (isPlain(text[i])) continue;
    if (text[i] != '%' || text.size() - i < 3) return false;
    if (!isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) return false;
    i += 2;
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [](char c) {
    return isLetter(c) || isDigit(c) || isOneOf(c, "+-.");
  });
}

// [user@]host[:port], where the host may be an address in brackets.
bool isAuthorityWithHost(std::string_view text) {
  if (const size_t at = text.find('@'); at != std::string_view::npos) {
    if (!hasOnlyUrlCharacters(text.substr(0, at))) return false;
    text.remove_prefix(at + 1);
  }
  size_t hostLength = text.find(':');
  if (text.starts_with('[')) {
    const size_t close = text.find(']');
    if (close == std::string_view::npos || close == 1) return false;
    if (!hasOnlyUrlCharacters(text.substr(1, close - 1))) return false;
    hostLength = close + 1;
  } else if (!hasOnlyUrlCharacters(text.substr(0, hostLength))) {
    return false;
  }
  const std::string_view host = text.substr(0, hostLength);
  const std::string_view port = text.substr(host.size());
  return !host.empty() && host.find('@') == std::string_view::npos &&
         (port.empty() || (port.front() == ':' && std::ranges::all_of(port.substr(1), isDigit)));
}

}  // namespace

bool isUrlWithSchemeAndHost(std::string_view text) {
  const size_t schemeEnd = text.find("://");
  if (schemeEnd == std::string_view::npos || !isScheme(text.substr(0, schemeEnd))) return false;
  text.remove_prefix(schemeEnd + 3);

  const std::string_view authority = text.substr(0, text.find_first_of("/?#"));
  if (!isAuthorityWithHost(authority)) return false;
  text.remove_prefix(authority.size());

  const size_t fragment = text.find('#');
  if (!hasOnlyUrlCharacters(text.substr(0, fragment))) return false;
  return fragment == std::string_view::npos || hasOnlyUrlCharacters(text.substr(fragment + 1));
}

std::string percentEscaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (isPlain(c)) {
      escaped += c;
    } else {
      escaped += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return escaped;
}

}  // namespace tovrek
