// OpenSSL 3.0 marks engines as deprecated, but Debian 12 has PKCS#11 as an engine alone.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "keychain/token_keys.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>

#include <algorithm>
#include <cstdlib>

#include "formats/hex.h"
#include "host/files.h"
#include "host/own_files.h"
#include "host/paths.h"

namespace tovrek::keychain {

namespace {

constexpr std::string_view kScheme = "pkcs11:";
constexpr std::string_view kEngine = "pkcs11";

// What a URI says. Its path names token and key; the query says how to reach them.
struct TokenUri {
  std::string path;
  std::optional<std::string> module, pin, pinSource;
};

std::string percentDecoded(std::string_view text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte =
        text[i] == '%' && i + 2 < text.size() ? bytesFromHex(text.substr(i + 1, 2)) : std::nullopt;
    result += byte ? *byte : std::string(1, text[i]);
    if (byte) i += 2;
  }
  return result;
}

// Calls take(NAME, VALUE) for each "NAME=VALUE" between separators; what it answers false for is
// kept in the text that is returned.
template <class Take>
std::string attributesLeft(std::string_view text, char separator, Take take) {
  std::string left;
  while (!text.empty()) {
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view pair = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const size_t equals = std::min(pair.find('='), pair.size());
    const std::string_view value = pair.substr(std::min(equals + 1, pair.size()));
    if (take(pair.substr(0, equals), percentDecoded(value))) continue;
    if (!left.empty()) left += separator;
    left += pair;
  }
  return left;
}

TokenUri parseUri(std::string_view uri) {
  TokenUri result;
  const auto take = [&](std::string_view name, std::string value) {
    std::optional<std::string>* place = name == "module-path"  ? &result.module
                                        : name == "pin-value"  ? &result.pin
                                        : name == "pin-source" ? &result.pinSource
                                                               : nullptr;
    if (place != nullptr) *place = std::move(value);
    return place != nullptr;
  };
  const size_t mark = std::min(uri.find('?'), uri.size());
  attributesLeft(uri.substr(std::min(mark + 1, uri.size())), '&', take);
  // Before there was a standard, such attributes stood among the others.
  const std::string_view path = uri.substr(kScheme.size(), mark - kScheme.size());
  result.path = std::string(kScheme) + attributesLeft(path, ';', take);
  return result;
}

std::optional<std::string> fromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

// A file's path, or its "file:" URI.
bool readPin(std::string_view source, std::optional<std::string>* pin, ErrorText* error) {
  std::string_view path = source;
  if (path.starts_with("file:")) path.remove_prefix(5);
  if (path.starts_with("//")) path.remove_prefix(std::min(path.find('/', 2), path.size()));
  std::string contents;
  ErrorText reason;
  if (fileExists(std::string(path)) && !isOwnRegularFile(std::string(path))) {
    return fail(error,
                fmt::format("cannot read the PIN from \"{}\": it is no file of your own", path));
  }
  if (!readFile(std::string(path), &contents, &reason)) {
    return fail(error, fmt::format("cannot read the PIN from \"{}\": {}", path, reason.text()));
  }
  *pin = contents.substr(0, contents.find_first_of("\r\n"));
  return true;
}

bool complete(TokenUri* uri, ErrorText* error) {
  if (!uri->pin && uri->pinSource && !readPin(*uri->pinSource, &uri->pin, error)) return false;
  if (!uri->pin) uri->pin = fromEnvironment("TOVREK_PKCS11_PIN");
  if (!uri->module) uri->module = fromEnvironment("TOVREK_PKCS11_MODULE");
  if (uri->module && uri->module->find('/') != std::string::npos && !isPlainFile(*uri->module)) {
    return fail(error, fmt::format("the PKCS#11 module \"{}\" does not exist", *uri->module));
  }
  return true;
}

ENGINE* loadEngine() {
  const char* folder = std::getenv("OPENSSL_ENGINES");
  if (folder == nullptr) folder = OPENSSL_info(OPENSSL_INFO_ENGINES_DIR);
  const std::string file = joinPath(folder == nullptr ? "" : folder, std::string(kEngine) + ".so");
  if (!isPlainFile(file)) return nullptr;
  ENGINE_load_dynamic();
  ENGINE* engine = ENGINE_by_id("dynamic");
  if (engine != nullptr && ENGINE_ctrl_cmd_string(engine, "SO_PATH", file.c_str(), 0) == 1 &&
      ENGINE_ctrl_cmd_string(engine, "ID", kEngine.data(), 0) == 1 &&
      ENGINE_ctrl_cmd_string(engine, "LOAD", nullptr, 0) == 1) {
    return engine;
  }
  ENGINE_free(engine);
  return nullptr;
}

// What the library keeps for the whole process: it can load the engine once, and the engine keeps
// its first module and login. One token is all that a signing program needs; a second module's keys
// would not be found.
struct SharedEngine {
  ENGINE* engine = nullptr;
  bool hasPin = false;
};

SharedEngine& sharedEngine() {
  static SharedEngine shared;
  if (shared.engine == nullptr) shared.engine = loadEngine();
  return shared;
}

struct TokenKeyFreer {
  ENGINE* engine;
  void operator()(EVP_PKEY* key) const noexcept {
    EVP_PKEY_free(key);
    ENGINE_finish(engine);
  }
};

bool prepare(SharedEngine* shared, const TokenUri& uri) {
  ENGINE* engine = shared->engine;
  // The engine would print its own lines beside our text.
  ENGINE_ctrl_cmd_string(engine, "QUIET", nullptr, 1);
  if (uri.module && ENGINE_ctrl_cmd_string(engine, "MODULE_PATH", uri.module->c_str(), 0) != 1) {
    return false;
  }
  // A token counts wrong PINs, so that of an earlier key must not be tried on this one.
  if (!uri.pin && shared->hasPin) return false;
  shared->hasPin = uri.pin.has_value();
  if (uri.pin && ENGINE_ctrl_cmd_string(engine, "PIN", uri.pin->c_str(), 0) != 1) return false;
  return ENGINE_init(engine) == 1;
}

// The module's own words are in the first error, what its callers make of them in later ones.
std::string reasonFor(const TokenUri& uri) {
  const char* words = ERR_reason_error_string(ERR_peek_error());
  const std::string first = words == nullptr ? "" : words;
  ERR_clear_error();
  constexpr std::string_view kWantsPin =
      "no such token or key, or it needs a PIN: give that by pin-value, pin-source or "
      "TOVREK_PKCS11_PIN";
  if (first == "invalid id") return "this is not a PKCS#11 URI";
  // Without a PIN the token hides its private keys.
  if (first == "object not found" || first.empty()) {
    return std::string(uri.pin ? "no such token, or no such key on it" : kWantsPin);
  }
  if (first.starts_with("Unable to load PKCS#11 module")) {
    return uri.module ? fmt::format("the PKCS#11 module \"{}\" cannot be loaded", *uri.module)
                      : "no PKCS#11 module: name one by module-path or TOVREK_PKCS11_MODULE";
  }
  return first;
}

}  // namespace

std::optional<std::string> tokenUriIn(std::string_view fileContents) {
  const std::string_view line = fileContents.substr(0, fileContents.find_first_of("\r\n"));
  return line.starts_with(kScheme) ? std::optional(trimmed(line)) : std::nullopt;
}

std::string withoutModule(const std::string& uri) {
  const auto isModule = [](std::string_view name, const std::string&) {
    return name == "module-path";
  };
  const size_t mark = std::min(uri.find('?'), uri.size());
  const std::string path = attributesLeft(std::string_view(uri).substr(0, mark), ';', isModule);
  const std::string query =
      attributesLeft(std::string_view(uri).substr(std::min(mark + 1, uri.size())), '&', isModule);
  return query.empty() ? path : path + "?" + query;
}

PrivateKey loadTokenKey(const std::string& text, UriSource source, ErrorText* error) {
  TokenUri uri = parseUri(text);
  const auto failed = [&](std::string_view why) {
    fail(error, fmt::format("{}: {}", uri.path, why));
    return nullptr;
  };
  if (source == UriSource::kFile && uri.module) {
    return failed(
        "a file may not name the module: give module-path on the command line, or "
        "TOVREK_PKCS11_MODULE");
  }
  ErrorText reason;
  if (!complete(&uri, &reason)) return failed(reason.text());
  SharedEngine& shared = sharedEngine();
  ENGINE* engine = shared.engine;
  if (engine == nullptr) {
    ERR_clear_error();
    return failed(
        "OpenSSL's engine for PKCS#11 is missing (Debian package libengine-pkcs11-openssl)");
  }
  if (!prepare(&shared, uri)) return failed(reasonFor(uri));
  EVP_PKEY* key =
      ENGINE_load_private_key(engine, uri.path.c_str(), const_cast<UI_METHOD*>(UI_null()), nullptr);
  if (key == nullptr) {
    const std::string words = reasonFor(uri);
    ENGINE_finish(engine);
    return failed(words);
  }
  ERR_clear_error();
  return {key, TokenKeyFreer{engine}};
}

bool isOnToken(const PrivateKey& key) {
  return std::get_deleter<TokenKeyFreer>(key) != nullptr;
}

}  // namespace tovrek::keychain
