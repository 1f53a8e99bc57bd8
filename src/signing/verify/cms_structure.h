// What in a signer's message its signature does not cover: versions, names and algorithms.
#pragma once

#include <openssl/cms.h>

#include <string_view>

namespace tovrek::signing {

// Whether these parts are as RFC 5652 wants them of a message with one signer over plain data, and
// agree with the signer's certificate, which has to be known to the message. `encoded` is what the
// message was read from.
bool isConsistent(CMS_ContentInfo* cms, std::string_view encoded);

}  // namespace tovrek::signing
