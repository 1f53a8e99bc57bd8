#include "formats/cms_content.h"

#include <climits>

#include "formats/openssl_owners.h"

namespace tovrek {

namespace {

CmsOwner parse(std::string_view message) {
  if (message.size() > LONG_MAX) return nullptr;
  const unsigned char* at = asBytes(message);
  CmsOwner parsed(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(message.size())));
  ERR_clear_error();
  return parsed;
}

// Where the content stands; null for kinds of message whose content is no plain text.
ASN1_OCTET_STRING** placeOfContent(CMS_ContentInfo* message) {
  const int kind = OBJ_obj2nid(CMS_get0_type(message));
  if (kind != NID_pkcs7_signed && kind != NID_pkcs7_data) return nullptr;
  ASN1_OCTET_STRING** place = CMS_get0_content(message);
  ERR_clear_error();
  return place;
}

}  // namespace

std::optional<std::string> cmsContent(std::string_view message, ErrorText* error) {
  const CmsOwner parsed = parse(message);
  if (!parsed) {
    fail(error, "the data is not a CMS message");
    return std::nullopt;
  }
  ASN1_OCTET_STRING** place = placeOfContent(parsed.get());
  if (place == nullptr) {
    fail(error, "the message is not a signed one");
    return std::nullopt;
  }
  if (*place == nullptr) return std::string();
  const unsigned char* data = ASN1_STRING_get0_data(*place);
  return std::string(data, data + ASN1_STRING_length(*place));
}

bool isDetached(std::string_view message) {
  const CmsOwner parsed = parse(message);
  if (!parsed) return false;
  ASN1_OCTET_STRING** place = placeOfContent(parsed.get());
  return place != nullptr && *place == nullptr;
}

}  // namespace tovrek
