#include "programs/tovrek/readable_places.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "formats/authorities.h"
#include "host/HostRoot.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/installation.h"
#include "host/paths.h"
#include "keychain/locations.h"
#include "keychain/token_keys.h"
#include "keychain/unlocking.h"

namespace tovrek::toolkit {
namespace {

using Paths = std::vector<std::string>;

// A token's URI is short.
constexpr uint64_t kLongestUri = 65536;

void append(Paths* paths, Paths more) {
  paths->insert(paths->end(), std::make_move_iterator(more.begin()),
                std::make_move_iterator(more.end()));
}

// Whose programs run is only known of the host root that came with this one.
bool isOwnHostRoot() {
  const auto used = realPath(HostRoot::folder());
  return used && used == realPath(joinPath(programFolder(), "host"));
}

// The folder, and what links in it lead to: a keychain of links to certificates elsewhere is one.
Paths withLinks(const std::string& folder) {
  Paths paths{folder};
  walkDirectoryIfThere(folder, [&](const WalkedItem& item) {
    if (item.kind == ItemKind::kLink) paths.push_back(joinPath(folder, item.relativePath));
    return true;
  });
  return paths;
}

Paths keychains(const RunContext& context) {
  Paths paths = keychain::searchList();
  paths.push_back(keychain::defaultKeychain());
  if (const auto named = context.keychain.namedKeychain()) {
    paths.push_back(keychain::resolveKeychain(*named));
  }
  return paths;
}

bool holdsTokenKey(const std::string& keychain) {
  const auto names = isDirectory(keychain) ? listDirectory(keychain) : std::nullopt;
  return names && std::ranges::any_of(*names, [&](const std::string& name) {
           const std::string file = joinPath(keychain, name);
           std::string bytes;
           return toLowerAscii(pathExtension(name)) == "key" && isPlainFile(file) &&
                  fileSize(file).value_or(kLongestUri) < kLongestUri && readFile(file, &bytes) &&
                  keychain::tokenUriIn(bytes);
         });
}

Paths inputs(const Request& request) {
  Paths paths;
  for (const auto& file : {request.inputFile, request.provisionProfile, request.embedBundlePath,
                           request.appSpecificPolicyFilepath, request.entitlementsPath}) {
    if (file && !file->empty()) paths.push_back(*file);
  }
  return paths;
}

// Programs, libraries and their configuration: the loader's, OpenSSL's, of users and groups, of
// languages and time zones. None of these holds anything of users, but for root's own files.
Paths systemFolders() {
  return {"/usr", "/lib", "/lib32", "/lib64", "/libx32",      "/bin",       "/sbin",     "/etc",
          "/dev", "/opt", "/proc",  "/sys",   "/var/lib/sss", "/nix/store", "/gnu/store"};
}

// Where the environment has the system's libraries look instead.
Paths namedByEnvironment() {
  Paths paths;
  for (const char* name :
       {"PATH", "LD_LIBRARY_PATH", "LD_PRELOAD", "OPENSSL_CONF", "OPENSSL_ENGINES",
        "OPENSSL_MODULES", "SSL_CERT_FILE", "SSL_CERT_DIR", "LOCPATH", "NLSPATH", "GCONV_PATH",
        "TERMINFO", "TERMINFO_DIRS", "TZ", "TZDIR", "ICU_DATA", "XML_CATALOG_FILES"}) {
    const char* value = std::getenv(name);
    std::string_view rest = value == nullptr ? "" : value;
    while (!rest.empty()) {
      const std::string_view piece = rest.substr(0, rest.find_first_of(": "));
      rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
      if (piece.size() > 1 && piece.starts_with('/')) paths.emplace_back(piece);
    }
  }
  return paths;
}

}  // namespace

std::optional<std::vector<std::string>> readablePlaces(const Request& request,
                                                       const RunContext& context) {
  const Paths searched = keychains(context);
  if (!isOwnHostRoot() || std::ranges::any_of(searched, holdsTokenKey)) return std::nullopt;
  Paths paths = systemFolders();
  append(&paths, namedByEnvironment());
  append(&paths, inputs(request));
  append(&paths, {programFolder(), keychain::dataFolder(), keychain::runtimeFolder()});
  for (const Paths& folders : {searched, rootFolders(), Paths{contentFolder()}}) {
    for (const std::string& folder : folders) append(&paths, withLinks(folder));
  }
  if (!context.settings.profilesFolder.empty()) {
    append(&paths, withLinks(context.settings.profilesFolder));
  }
  return paths;
}

}  // namespace tovrek::toolkit
