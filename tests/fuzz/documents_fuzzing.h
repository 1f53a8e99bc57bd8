// What the fuzz programs do with documents of strangers; the ordinary tests have cases of their
// own.
#pragma once

#include <string_view>

namespace tovrek::test {

// Takes any bytes as a property list, as XML, as a CMS message and as the rules of a seal. Aborts
// on a broken promise: a list that was read is written and read again as the same, and rules that
// the signer takes are rules to the judge.
void fuzzDocuments(std::string_view bytes);

// Takes any bytes as the contents of a key file.
void fuzzKeyFile(std::string_view bytes);

}  // namespace tovrek::test
