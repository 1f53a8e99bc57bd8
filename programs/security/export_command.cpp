// Items of a keychain as one file. Private keys always leave it encrypted.
#include <fmt/format.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>

#include "formats/openssl_owners.h"
#include "keychain/item_files.h"
#include "keychain/key_files.h"
#include "keychain/token_keys.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/item_search.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/passwords.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

using keychain::Items;

constexpr std::string_view kExportCall = "SecItemExport";

struct Type {
  std::string_view name;
  bool certificates, keys, pairsOnly;
};
constexpr std::array<Type, 5> kTypes = {{{"certs", true, false, false},
                                         {"privKeys", false, true, false},
                                         {"allKeys", false, true, false},
                                         {"identities", true, true, true},
                                         {"all", true, true, false}}};
constexpr std::array<std::string_view, 5> kExportFormats = {"pkcs12", "pemseq", "pkcs7", "x509",
                                                            "pkcs8"};

bool addKey(const keychain::PrivateKey& key, Items* items, ErrorText* error) {
  if (!key) return false;
  if (keychain::isOnToken(key)) return fail(error, "A key on a token cannot be exported.");
  items->keys.push_back(key);
  return true;
}

// Keys that are fetched must be there; a keychain that is locked has nothing to export.
bool collect(const keychain::Keychain& from, const Type& type, Items* items, ErrorText* error) {
  if (type.pairsOnly) {
    return std::ranges::all_of(from.identities(), [&](const keychain::Identity& identity) {
      items->certificates.push_back(identity.leaf);
      return addKey(identity.usableKey(error), items, error);
    });
  }
  if (type.certificates) items->certificates = from.certificates();
  if (!type.keys) return true;
  return std::ranges::all_of(
             from.keys(),
             [&](const keychain::PrivateKey& key) { return addKey(key, items, error); }) &&
         std::ranges::all_of(from.deferredKeys(), [&](const keychain::DeferredKey& key) {
           return addKey(keychain::loadKey(key, error), items, error);
         });
}

std::string pemSequence(const Items& items, const std::optional<std::string>& password) {
  std::string text;
  for (const keychain::PrivateKey& key : items.keys) {
    const std::string pem = keychain::keyToPem(key, password);
    if (pem.empty()) return {};
    text += pem;
  }
  for (const Certificate& certificate : items.certificates) text += pemOf(certificate);
  return text;
}

std::string certificateBundle(const Items& items) {
  const Pkcs7Owner bundle(PKCS7_new());
  if (!bundle || PKCS7_set_type(bundle.get(), NID_pkcs7_signed) != 1 ||
      PKCS7_content_new(bundle.get(), NID_pkcs7_data) != 1) {
    return {};
  }
  for (const Certificate& certificate : items.certificates) {
    if (PKCS7_add_certificate(bundle.get(), certificate.x509().get()) != 1) return {};
  }
  return encoded([&](unsigned char** out) { return i2d_PKCS7(bundle.get(), out); });
}

std::string armoured(const std::string& der, const char* name) {
  const BioOwner memory(BIO_new(BIO_s_mem()));
  PEM_write_bio(memory.get(), name, "", asBytes(der), static_cast<long>(der.size()));
  return contentsOf(memory.get());
}

// Empty when the items do not fit the format.
std::string inFormat(const Items& items, std::string_view format, bool pem,
                     const std::optional<std::string>& password) {
  if (format == "pemseq") return pemSequence(items, password);
  if (format == "pkcs12") {
    const std::string der = keychain::writePkcs12(items, password.value_or(""));
    return pem ? armoured(der, "PKCS12") : der;
  }
  if (format == "pkcs8") {
    return items.certificates.empty() && items.keys.size() == 1 ? pemSequence(items, password) : "";
  }
  if (!items.keys.empty() || items.certificates.empty()) return {};
  if (format == "pkcs7") {
    const std::string der = certificateBundle(items);
    return pem ? armoured(der, "PKCS7") : der;
  }
  const Certificate& first = items.certificates.front();
  if (items.certificates.size() != 1) return {};
  return pem ? pemOf(first) : first.der();
}

}  // namespace

int exportItems(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "k:t:f:wpP:o:");
  if (!options || !options->operands().empty()) return kUsage;
  const auto type = std::ranges::find(kTypes, options->value('t').value_or("all"), &Type::name);
  if (type == kTypes.end()) return kUsage;
  const std::string format = options->value('f').value_or(type->keys ? "pkcs12" : "pemseq");
  if (std::ranges::find(kExportFormats, format) == kExportFormats.end()) return kUsage;

  int status = kSuccess;
  std::vector<std::string> names;
  if (const auto name = options->value('k')) names.push_back(*name);
  const auto path = existingKeychain(names, kExportCall, &status, streams);
  if (!path) return status;
  const auto keychains = chosenKeychains({*path}, kExportCall, &status, streams);
  if (!keychains) return status;

  Items items;
  ErrorText error;
  if (!collect(keychains->front(), *type, &items, &error)) {
    return reportFailure(fmt::format("{}: {}", kExportCall, error.text()), streams);
  }
  if (items.keys.empty() && items.certificates.empty()) {
    return reportStatus(kExportCall, OsStatus::kItemNotFound, streams);
  }
  std::optional<std::string> password;
  if (!items.keys.empty()) {
    password = givenPassword(*options, 'P', "passphrase for the export: ");
    // A script that forgot it would have keys that anybody can read.
    if (!password) return reportNoPassword(kExportCall, 'P', streams);
  }
  const std::string result = inFormat(items, format, options->has('p'), password);
  const Secrecy secrecy = items.keys.empty() ? Secrecy::kPublic : Secrecy::kSecret;
  if (!result.empty()) return writeResult(options->value('o'), result, streams, secrecy);
  return reportFailure(
      fmt::format("{}: these items cannot be exported in the format {}", kExportCall, format),
      streams);
}

}  // namespace tovrek::security
