// A keychain of this host: a folder of certificates and private keys, or one file holding both.
//
// Certificates are .cer/.der (DER or PEM), keys .key (PEM or DER), .pem holds any mix and .p12
// (.pfx) a whole identity (RFC 7292). What an import writes is one file per item, named after a
// digest, keys with mode 0600 in a folder with mode 0700. Files put there by hand count too.
//
// A key file may hold a "pkcs11:" URI in place of a key; the key then stays on its token. A
// keychain's settings may say that keys are stored encrypted with its password.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/Certificate.h"
#include "host/ErrorText.h"

namespace tovrek::keychain {

using PrivateKey = std::shared_ptr<EVP_PKEY>;

// A key that is fetched when it is used, because that needs a password or a token.
struct DeferredKey {
  std::string id;    // publicKeyId(), from the file's name
  std::string file;  // an encrypted key, or a token's URI
};

// Fetches it. Null, with the reason, when the keychain is locked or the token does not give it.
PrivateKey loadKey(const DeferredKey& key, ErrorText* error);

// A certificate with its private key.
struct Identity {
  Certificate leaf;
  PrivateKey key;  // null for one that is to be fetched
  // The issuers' certificates, from the leaf's issuer upwards to the self-signed root, as
  // far as the keychains hold them. The leaf is not among them; a self-signed leaf has none.
  std::vector<Certificate> chain;
  std::optional<DeferredKey> deferred = std::nullopt;

  // The key itself, fetched where it is not there yet; null, with the reason.
  PrivateKey usableKey(ErrorText* error) const { return key ? key : loadKey(*deferred, error); }
};

// A key on a token, by its URI and its publicKeyId().
struct TokenKey {
  std::string uri, id;
};

// Certificates and keys read from a file or a folder, before they are matched.
struct Items {
  std::vector<Certificate> certificates;
  std::vector<PrivateKey> keys;
  std::vector<TokenKey> tokenKeys = {};
};

class Keychain {
 public:
  // Reads the keychain at a real path (see locations.h for what users may write). None, with the
  // reason, when nothing stands there or a single file cannot be read. In a folder, files that
  // hold neither certificate nor key are passed over.
  //
  // Encrypted files are tried with no password, then with that of the unlocked keychain and with
  // $TOVREK_KEYCHAIN_PASSWORD. Those named by their key's digest are read when the key is used.
  static std::optional<Keychain> open(const std::string& path, ErrorText* error = nullptr);

  // One without items that stands for what is there at the path and cannot be read.
  static Keychain unreadableAt(const std::string& path, std::string_view reason);

  const std::string& path() const { return path_; }
  // Each certificate once, in the order of the file names.
  const std::vector<Certificate>& certificates() const { return items_.certificates; }
  // Keys that are at hand, and those that can be fetched.
  const std::vector<PrivateKey>& keys() const { return items_.keys; }
  const std::vector<DeferredKey>& deferredKeys() const { return deferred_; }
  bool hasKeys() const { return !items_.keys.empty() || !deferred_.empty(); }
  // The files that the system did not let us read, with its reason, one line for each. What they
  // hold is missing from all answers, which users have to be told.
  const std::vector<std::string>& unreadable() const { return unreadable_; }
  // Why key files could not be read, one sentence for each.
  const std::vector<std::string>& problems() const { return problems_; }
  // Certificates whose private key is in this keychain too. Their chains are empty: see
  // completeChain() in identities.h.
  std::vector<Identity> identities() const;

  struct Added {
    int identities = 0;    // pairs among the items, at least one half of them new
    int keys = 0;          // new keys without a certificate among the items
    int certificates = 0;  // new certificates without a key among the items
    int duplicates = 0;    // items that were there already
  };
  // Writes each item that the keychain lacks to a file of its own. False, with the reason, when
  // the keychain is a single file or cannot be written; what was written until then stays.
  bool add(const Items& items, Added* added, ErrorText* error);

 private:
  bool readFolder(ErrorText* error);
  bool holdsKey(const std::string& id) const;
  bool addKeys(const Items& items, std::vector<std::string>* newKeys, Added* counts,
               ErrorText* error);

  std::string path_;
  Items items_;
  std::vector<DeferredKey> deferred_;
  std::vector<std::string> unreadable_;
  std::vector<std::string> problems_;
};

// SHA-1 of the public key in lower-case hex: the same for a certificate and its key.
std::string publicKeyId(const Certificate& certificate);
std::string publicKeyId(const PrivateKey& key);

// Whether a keychain's folder is searched for items in a file of this name, by its extension.
bool isKeychainFileName(const std::string& name);

}  // namespace tovrek::keychain
