#include "keychain/locations.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "host/files.h"
#include "host/paths.h"
#include "keychain/item_files.h"
#include "keychain/key_files.h"
#include "keychain/password_record.h"
#include "keychain/settings.h"
#include "keychain/unlocking.h"

namespace tovrek::keychain {

namespace {

constexpr std::array<std::string_view, 2> kSuffixes = {".keychain-db", ".keychain"};

std::string searchListFile() {
  return joinPath(dataFolder(), "search-list");
}
std::string defaultFile() {
  return joinPath(dataFolder(), "default-keychain");
}

std::string absolutePath(std::string_view path) {
  const std::string standard = standardizePath(path);
  if (!standard.empty() && standard.front() == '/') return standard;
  return standardizePath(joinPath(realPath(".").value_or("/"), standard));
}

std::string withoutSuffix(std::string_view name) {
  for (const std::string_view suffix : kSuffixes) {
    if (name.size() > suffix.size() && name.ends_with(suffix)) {
      name.remove_suffix(suffix.size());
      break;
    }
  }
  return std::string(name);
}

// Tells a keychain in the working directory from a folder that merely shares its first name.
bool looksLikeKeychain(const std::string& path) {
  return isDirectory(path) ? withoutSuffix(path) != path
                           : isPlainFile(path) && isKeychainFileName(path);
}

std::string resolveName(const std::string& name) {
  const std::string stem = withoutSuffix(name);
  if (stem == "login" || stem == "keychain") return joinPath(dataFolder(), "keychain");
  const std::string own = joinPath(dataFolder(), stem + ".keychain");
  // There is no keychain for all users on this host; the user's own one takes its place.
  if (stem == "System" && !fileExists(own)) return joinPath(dataFolder(), "keychain");
  return !fileExists(own) && looksLikeKeychain(name) ? absolutePath(name) : own;
}

// Lines of a settings file; a missing file has none.
std::vector<std::string> linesOf(const std::string& path) {
  std::string contents;
  std::vector<std::string> lines;
  if (!readFile(path, &contents)) return lines;
  for (size_t at = 0; at < contents.size();) {
    const size_t end = std::min(contents.find('\n', at), contents.size());
    if (end > at) lines.push_back(contents.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// Folders that only this user may enter, as far as they are not there yet.
bool createOwnFolders(const std::string& path, ErrorText* error) {
  if (isDirectory(path)) return true;
  const std::string parent = containingFolder(path);
  if (parent != path && !createOwnFolders(parent, error)) return false;
  return createPrivateDirectory(path, error) || isDirectory(path);
}

bool storeLines(const std::string& path, const std::vector<std::string>& lines, ErrorText* error) {
  std::string contents;
  for (const std::string& line : lines) {
    if (line.find('\n') != std::string::npos) return fail(error, "a path holds a line break");
    contents += line + "\n";
  }
  return createOwnFolders(containingFolder(path), error) && writeSecret(path, contents, error);
}

// A keychain's folder holds items and our record; anything else was put there by somebody else
// and a folder that has it is not ours to remove.
bool holdsOnlyItems(const std::string& folder) {
  const auto names = listDirectory(folder);
  return names && std::ranges::all_of(*names, [&](const std::string& name) {
           return (isKeychainFileName(name) || name == kPasswordRecordName ||
                   name == kSettingsName) &&
                  !isDirectory(joinPath(folder, name));
         });
}

bool forget(const std::string& path, ErrorText* error) {
  std::vector<std::string> listed = linesOf(searchListFile());
  if (std::erase(listed, path) > 0 && !storeLines(searchListFile(), listed, error)) return false;
  const std::vector<std::string> chosen = linesOf(defaultFile());
  return chosen.empty() || chosen.front() != path || removeItem(defaultFile(), error);
}

}  // namespace

std::string dataFolder() {
  const char* home = std::getenv("XDG_DATA_HOME");
  if (home != nullptr && *home == '/') return joinPath(standardizePath(home), "tovrek");
  return standardizePath("~/.local/share/tovrek");
}

std::string resolveKeychain(std::string_view nameOrPath) {
  if (nameOrPath.find('/') == std::string_view::npos) return resolveName(std::string(nameOrPath));
  const std::string path = absolutePath(nameOrPath);
  if (fileExists(path)) return path;
  const std::string stem = withoutSuffix(path);
  for (const std::string_view suffix : kSuffixes) {
    if (fileExists(stem + std::string(suffix))) return stem + std::string(suffix);
  }
  const std::string folder = containingFolder(path);
  if (folder.ends_with("/Library/Keychains") && !isDirectory(folder)) {
    return resolveName(lastPathComponent(path));
  }
  return path;
}

std::string defaultKeychain() {
  const std::vector<std::string> chosen = linesOf(defaultFile());
  return chosen.empty() ? joinPath(dataFolder(), "keychain") : chosen.front();
}

bool setDefaultKeychain(const std::string& path, ErrorText* error) {
  return storeLines(defaultFile(), {path}, error);
}

bool resetDefaultKeychain(ErrorText* error) {
  return !fileExists(defaultFile()) || removeItem(defaultFile(), error);
}

std::vector<std::string> searchList() {
  if (fileExists(searchListFile())) return linesOf(searchListFile());
  return {defaultKeychain()};
}

bool setSearchList(const std::vector<std::string>& paths, ErrorText* error) {
  return storeLines(searchListFile(), paths, error);
}

std::optional<Keychain> openKeychain(std::string_view nameOrPath, ErrorText* error) {
  return Keychain::open(resolveKeychain(nameOrPath), error);
}

std::vector<Keychain> openSearchList(std::vector<Unopened>* unopened) {
  std::vector<Keychain> result;
  for (const std::string& path : searchList()) {
    ErrorText reason;
    auto keychain = Keychain::open(path, &reason);
    if (keychain) {
      result.push_back(std::move(*keychain));
    } else if (unopened != nullptr) {
      const bool isMissing = reason.text().find(std::strerror(ENOENT)) != std::string::npos;
      unopened->push_back({path, reason.text(), isMissing});
    } else if (itemExistsNoFollow(path)) {
      result.push_back(Keychain::unreadableAt(path, reason.text()));
    }
  }
  return result;
}

bool encryptsNewKeychains() {
  const char* value = std::getenv("TOVREK_ENCRYPT_KEYCHAINS");
  return value != nullptr && std::string_view(value) == "1";
}

CreateResult createKeychain(const std::string& path, const std::optional<std::string>& password,
                            ErrorText* error, bool encrypted) {
  if (itemExistsNoFollow(path)) return CreateResult::kExists;
  if (!createOwnFolders(containingFolder(path), error)) return CreateResult::kFailed;
  ErrorText reason;
  if (!createPrivateDirectory(path, &reason)) {
    if (itemExistsNoFollow(path)) return CreateResult::kExists;
    fail(error, reason.text());
    return CreateResult::kFailed;
  }
  Settings settings;
  settings.encrypted = encrypted;
  const bool done = !password || (writePasswordRecord(path, *password, error) &&
                                  (!encrypted || (writeSettings(path, settings, error) &&
                                                  rememberPassword(path, *password, error))));
  if (done) return CreateResult::kCreated;
  removeItem(path);
  return CreateResult::kFailed;
}

bool changePassword(const std::string& path, const std::string& before, const std::string& after,
                    ErrorText* error) {
  const bool encrypted = readSettings(path).encrypted;
  if (encrypted && !reencryptKeys(path, before, after, error)) return false;
  if (!writePasswordRecord(path, after, error)) return false;
  return !encrypted || !rememberedPassword(path) || rememberPassword(path, after, error);
}

bool deleteKeychain(const std::string& path, ErrorText* error) {
  if (isDirectory(path)) {
    if (!holdsOnlyItems(path)) return fail(error, "The folder holds other items too.");
  } else if (!Keychain::open(path, error)) {
    return false;
  }
  forgetPassword(path);
  return removeItem(path, error) && forget(path, error);
}

bool checkPassword(const std::string& path, std::string_view password) {
  if (isDirectory(path)) return fitsPasswordRecord(path, password);
  std::string bytes;
  Items items;
  return readFile(path, &bytes) &&
         readItems(bytes, std::string(password), &items) == ReadResult::kRead;
}

}  // namespace tovrek::keychain
