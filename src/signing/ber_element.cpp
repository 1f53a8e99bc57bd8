#include "signing/ber_element.h"

#include <openssl/asn1.h>

#include "formats/openssl_owners.h"

namespace tovrek::signing {
namespace {

constexpr int kDeepestElement = 64;
// Of what ASN1_get_object() answers.
constexpr int kFailed = 0x80;
constexpr int kIndefinite = 1;

std::optional<BerElement> take(std::string_view* rest, int depth) {
  if (rest->empty() || depth > kDeepestElement) return std::nullopt;
  const std::string_view start = *rest;
  const unsigned char* at = asBytes(start);
  BerElement element;
  long length = 0;
  const int form =
      ASN1_get_object(&at, &length, &element.tag, &element.kind, static_cast<long>(start.size()));
  if ((form & kFailed) != 0) return std::nullopt;
  element.isConstructed = (form & V_ASN1_CONSTRUCTED) != 0;
  element.isDefinite = (form & kIndefinite) == 0;
  const auto header = static_cast<size_t>(at - asBytes(start));
  if (element.isDefinite) {
    element.whole = start.substr(0, header + static_cast<size_t>(length));
    element.contents = element.whole.substr(header);
    rest->remove_prefix(element.whole.size());
    return element;
  }
  rest->remove_prefix(header);
  constexpr std::string_view kMark("\0\0", 2);
  while (!rest->starts_with(kMark)) {
    if (!take(rest, depth + 1)) return std::nullopt;
  }
  element.contents = start.substr(header, start.size() - header - rest->size());
  rest->remove_prefix(kMark.size());
  element.whole = start.substr(0, start.size() - rest->size());
  return element;
}

}  // namespace

std::optional<BerElement> takeElement(std::string_view* rest) {
  return take(rest, 0);
}

}  // namespace tovrek::signing
