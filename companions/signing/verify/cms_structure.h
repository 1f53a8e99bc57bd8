// What in a signer's message its signature does not cover: versions, names and algorithms.
#pragma once

#include <openssl/cms.h>

namespace tovrek::signing {

// Whether these parts are as RFC 5652 wants them of a message with one signer over plain data, and
// agree with the signer's certificate. The certificate has to be known to the message.
bool isConsistent(CMS_ContentInfo* cms);

}  // namespace tovrek::signing
