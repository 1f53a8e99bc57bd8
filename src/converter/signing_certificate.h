// Which certificate codesign will sign with.
#pragma once

#include <string>
#include <vector>

#include "converter/Run.h"
#include "formats/Certificate.h"

namespace tovrek::converter {

// More than one where the name that the user gave fits several.
struct SigningCertificates {
  std::vector<std::string> sha1;  // lower-case hexadecimal
  std::string name;               // serves where the keychain could not tell

  bool include(const Certificate& certificate) const;
};

// By the digest that the user gave, else by asking the keychain for identities of that name.
SigningCertificates signingCertificates(const Run& run);

}  // namespace tovrek::converter
