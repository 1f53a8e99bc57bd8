// A PKCS#11 token in files (SoftHSM), for keys that must not leave their token.
#pragma once

#include <string>

#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// One token "build" with the PIN "1234" in a folder of its own. While the object lives, SoftHSM of
// this process and its children knows this token alone.
class SoftToken {
 public:
  static constexpr const char* kModule = "/usr/lib/softhsm/libsofthsm2.so";

  explicit SoftToken(const TemporaryFolder& folder);

  // Puts the key of a PEM file on the token under a label.
  void add(const std::string& keyFile, const std::string& label);
  // "pkcs11:" + path + "?module-path=...", with "&" and `query` where that is given.
  static std::string uri(const std::string& path, const std::string& query = "");

 private:
  int keys_ = 0;
  ScopedEnvironment configuration_;
};

}  // namespace tovrek::test
