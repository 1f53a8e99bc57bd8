// The subject of a certificate, without a start of the host's openssl: that takes twenty
// milliseconds to find out what kind of file it has before it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovrek::openssl {

// What "x509 [-inform der|pem] -in FILE -subject -noout" prints, with its options in any order, for
// a file of one certificate in DER, or one that begins with a certificate in PEM. None for all
// other questions and files, errors among them: they are the host program's to answer.
std::optional<std::string> subjectAnswer(const std::vector<std::string>& arguments);

}  // namespace tovrek::openssl
