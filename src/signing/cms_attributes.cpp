#include "signing/cms_attributes.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <algorithm>
#include <ctime>

#include "formats/XmlPlistWriter.h"
#include "signing/requirements.h"

namespace tovrek::signing {
namespace {

constexpr char kObjectIdentifier = 0x06;
constexpr char kOctetString = 0x04;
constexpr char kSequence = 0x30;

// All parts are short, so that one length byte always does.
std::string shortElement(char tag, std::string_view contents) {
  std::string der(1, tag);
  der.push_back(static_cast<char>(contents.size()));
  return der.append(contents);
}

std::optional<std::string_view> takeElement(char tag, std::string_view* der) {
  if (der->size() < 2 || (*der)[0] != tag) return std::nullopt;
  const auto size = static_cast<unsigned char>((*der)[1]);
  if (size > 127 || size > der->size() - 2) return std::nullopt;
  const auto contents = der->substr(2, size);
  der->remove_prefix(2 + size_t{size});
  return contents;
}

X509_ATTRIBUTE* attributeOf(const CMS_SignerInfo* signer, const char* oid) {
  const ObjectOwner object(OBJ_txt2obj(oid, 1));
  const int at = CMS_signed_get_attr_by_OBJ(signer, object.get(), -1);
  return at < 0 ? nullptr : CMS_signed_get_attr(signer, at);
}

std::string_view viewOf(const ASN1_STRING* text) {
  const void* data = ASN1_STRING_get0_data(text);
  return {static_cast<const char*>(data), static_cast<size_t>(ASN1_STRING_length(text))};
}

std::optional<CmsSignature::NamedHash> namedHashFrom(std::string_view der) {
  auto sequence = takeElement(kSequence, &der);
  if (!sequence) return std::nullopt;
  const auto oid = takeElement(kObjectIdentifier, &*sequence);
  const auto hash = takeElement(kOctetString, &*sequence);
  if (!oid || !hash) return std::nullopt;
  return CmsSignature::NamedHash{std::string(*oid), std::string(*hash)};
}

}  // namespace

std::string cdHashesPlist(const std::vector<CodeDirectory>& directories) {
  std::vector<const CodeDirectory*> ordered;
  for (const CodeDirectory& directory : directories) ordered.push_back(&directory);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->kind().type < b->kind().type; });
  XmlPlistWriter writer(XmlPlistLayout::kSignature);
  writer.beginDictionary();
  writer.key("cdhashes");
  writer.beginArray();
  for (const CodeDirectory* directory : ordered) writer.data(directory->cdHash());
  writer.endArray();
  writer.endDictionary();
  return writer.finish();
}

std::string namedHashDer(const CodeDirectory& directory) {
  return shortElement(kSequence,
                      shortElement(kObjectIdentifier, oidContents(directory.kind().oid)) +
                          shortElement(kOctetString, directory.fullHash()));
}

std::optional<std::string> cdHashesOf(const CMS_SignerInfo* signer) {
  X509_ATTRIBUTE* attribute = attributeOf(signer, kCdHashesOid);
  if (attribute == nullptr || X509_ATTRIBUTE_count(attribute) != 1) return std::nullopt;
  const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (ASN1_TYPE_get(value) != V_ASN1_OCTET_STRING) return std::nullopt;
  return std::string(viewOf(value->value.octet_string));
}

std::optional<std::vector<CmsSignature::NamedHash>> namedHashesOf(const CMS_SignerInfo* signer) {
  X509_ATTRIBUTE* attribute = attributeOf(signer, kNamedHashesOid);
  if (attribute == nullptr) return std::nullopt;
  std::vector<CmsSignature::NamedHash> hashes;
  for (int i = 0; i < X509_ATTRIBUTE_count(attribute); ++i) {
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, i);
    if (ASN1_TYPE_get(value) != V_ASN1_SEQUENCE) return std::nullopt;
    const auto hash = namedHashFrom(viewOf(value->value.sequence));
    if (!hash) return std::nullopt;
    hashes.push_back(*hash);
  }
  return hashes;
}

std::optional<double> signingTimeOf(const CMS_SignerInfo* signer) {
  const int at = CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1);
  X509_ATTRIBUTE* attribute = at < 0 ? nullptr : CMS_signed_get_attr(signer, at);
  const ASN1_TYPE* value = attribute == nullptr ? nullptr : X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr) return std::nullopt;
  const int type = ASN1_TYPE_get(value);
  std::tm parts{};
  if ((type != V_ASN1_UTCTIME && type != V_ASN1_GENERALIZEDTIME) ||
      ASN1_TIME_to_tm(value->value.asn1_string, &parts) != 1) {
    return std::nullopt;
  }
  return static_cast<double>(::timegm(&parts));
}

}  // namespace tovrek::signing
