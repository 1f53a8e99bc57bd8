#include "signing/KnownCertificates.h"

#include <openssl/asn1.h>

#include <algorithm>

#include "signing/ber_element.h"

namespace tovrek::signing {
namespace {

constexpr size_t kMostSets = 32;

// Takes the next element; none where its length is not stated, as it is in DER.
std::optional<BerElement> take(std::string_view* rest) {
  const auto element = takeElement(rest);
  return element && element->isDefinite ? element : std::nullopt;
}

// What a lone element of that kind holds.
std::optional<std::string_view> inside(std::string_view bytes, int tag, int kind) {
  const auto element = take(&bytes);
  const bool fits = element && bytes.empty() && element->tag == tag && element->kind == kind &&
                    element->isConstructed;
  return fits ? std::optional(element->contents) : std::nullopt;
}

std::string wrapped(std::string_view contents, int tag, int kind) {
  const auto size = static_cast<int>(contents.size());
  std::string bytes(static_cast<size_t>(ASN1_object_size(1, size, tag)) - contents.size(), '\0');
  auto* at = static_cast<unsigned char*>(static_cast<void*>(bytes.data()));
  ASN1_put_object(&at, 1, size, tag, kind);
  return bytes.append(contents);
}

}  // namespace

KnownCertificates::Set* KnownCertificates::read(std::string_view der) {
  if (const auto known = sets_.find(der); known != sets_.end()) return &known->second;
  if (sets_.size() >= kMostSets) return nullptr;
  Set set;
  for (std::string_view rest = der; !rest.empty();) {
    const auto element = take(&rest);
    auto certificate = element ? Certificate::fromDer(element->whole) : std::nullopt;
    // Attribute certificates and the like.
    if (!certificate || element->kind != V_ASN1_UNIVERSAL) return nullptr;
    set.certificates.push_back(std::move(*certificate));
  }
  return &sets_.emplace(der, std::move(set)).first->second;
}

const CertificateChain& KnownCertificates::chainOf(Set* set, const Certificate& leaf) {
  const auto known = set->chains.find(leaf.der());
  if (known != set->chains.end()) return known->second;
  std::vector<Certificate> others = set->certificates;
  std::erase_if(others, [&](const Certificate& each) { return each.x509() == leaf.x509(); });
  return set->chains.emplace(leaf.der(), CertificateChain::build(leaf, others)).first->second;
}

std::optional<SplitMessage> withoutCertificates(std::string_view message) {
  auto info = inside(message, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
  const auto type = info ? take(&*info) : std::nullopt;
  const auto content = type ? inside(*info, 0, V_ASN1_CONTEXT_SPECIFIC) : std::nullopt;
  auto data = content ? inside(*content, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL) : std::nullopt;
  if (!data) return std::nullopt;
  // Version, digests and content stand before the certificates.
  const std::string_view whole = *data;
  for (int i = 0; i < 3; ++i) {
    if (!take(&*data)) return std::nullopt;
  }
  const std::string_view before = whole.substr(0, whole.size() - data->size());
  const auto certificates = take(&*data);
  if (!certificates || certificates->tag != 0 || !certificates->isConstructed ||
      certificates->kind != V_ASN1_CONTEXT_SPECIFIC) {
    return std::nullopt;
  }
  const std::string parts =
      wrapped(std::string(before).append(*data), V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
  const std::string rest =
      std::string(type->whole).append(wrapped(parts, 0, V_ASN1_CONTEXT_SPECIFIC));
  return SplitMessage{wrapped(rest, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL), certificates->contents};
}

}  // namespace tovrek::signing
