#include "keychain/password_record.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <sstream>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"
#include "host/files.h"
#include "host/paths.h"
#include "keychain/key_files.h"

namespace tovrek::keychain {

namespace {

constexpr std::string_view kScheme = "pbkdf2-sha256";
constexpr int kRecordRounds = 100000;
constexpr int kMostRecordRounds = 10000000;  // a damaged record must not keep us busy for hours

// `salt` is taken as it is written, hexadecimal digits and all.
std::string digestOfPassword(std::string_view password, std::string_view salt, int rounds) {
  std::array<unsigned char, 32> digest{};
  if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), asBytes(salt),
                        static_cast<int>(salt.size()), rounds, EVP_sha256(),
                        static_cast<int>(digest.size()), digest.data()) != 1) {
    return {};
  }
  return hexLower(std::string(digest.begin(), digest.end()));
}

}  // namespace

bool writePasswordRecord(const std::string& folder, std::string_view password, ErrorText* error) {
  std::array<unsigned char, 16> random{};
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
    return fail(error, "no random numbers");
  }
  const std::string salt = hexLower(std::string(random.begin(), random.end()));
  const std::string digest = digestOfPassword(password, salt, kRecordRounds);
  if (digest.empty()) return fail(error, "the password cannot be digested");
  return writeSecret(joinPath(folder, kPasswordRecordName),
                     fmt::format("{} {} {} {}\n", kScheme, kRecordRounds, salt, digest), error);
}

bool fitsPasswordRecord(const std::string& folder, std::string_view password) {
  const std::string path = joinPath(folder, kPasswordRecordName);
  if (!fileExists(path)) return true;
  std::string contents;
  if (!readFile(path, &contents)) return false;
  std::istringstream words(contents);
  std::string scheme, salt, expected;
  int rounds = 0;
  if (!(words >> scheme >> rounds >> salt >> expected) || scheme != kScheme || rounds < 1 ||
      rounds > kMostRecordRounds) {
    return false;
  }
  const std::string digest = digestOfPassword(password, salt, rounds);
  return digest.size() == expected.size() && !digest.empty() &&
         CRYPTO_memcmp(digest.data(), expected.data(), digest.size()) == 0;
}

}  // namespace tovrek::keychain
