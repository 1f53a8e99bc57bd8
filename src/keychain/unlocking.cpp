#include "keychain/unlocking.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "formats/Digest.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "keychain/key_files.h"
#include "keychain/password_record.h"
#include "keychain/settings.h"

namespace tovrek::keychain {

namespace {

std::string runtimeFolder() {
  const char* named = std::getenv("XDG_RUNTIME_DIR");
  if (named != nullptr && *named == '/' && isDirectory(named)) return joinPath(named, "tovrek");
  return fmt::format("{}/tovrek-{}", isWritable("/dev/shm") ? "/dev/shm" : "/tmp", ::geteuid());
}

// Anybody may make a folder in /dev/shm and /tmp; only one of our own is trusted.
bool isPrivate(const std::string& folder) {
  struct stat info {};
  return ::lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
         info.st_uid == ::geteuid() && (info.st_mode & 0077) == 0;
}

std::string fileFor(const std::string& keychain) {
  const std::string path = realPath(keychain).value_or(keychain);
  return joinPath(runtimeFolder(), hexLower(digestOf(DigestAlgorithm::kSha256, path)));
}

bool expired(const std::string& file, const std::optional<int>& timeout) {
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0) return true;
  return timeout && currentTime() - static_cast<double>(info.st_mtime) > *timeout;
}

}  // namespace

bool rememberPassword(const std::string& keychain, std::string_view password, ErrorText* error) {
  const std::string folder = runtimeFolder();
  if (!itemExistsNoFollow(folder)) createPrivateDirectory(folder);
  if (!isPrivate(folder)) {
    return fail(error, fmt::format("{} is not a folder of this user alone", folder));
  }
  return writeSecret(fileFor(keychain), password, error);
}

std::optional<std::string> rememberedPassword(const std::string& keychain) {
  if (!isPrivate(runtimeFolder())) return std::nullopt;
  const std::string file = fileFor(keychain);
  if (!fileExists(file)) return std::nullopt;
  if (expired(file, readSettings(keychain).timeout)) {
    forgetPassword(keychain);
    return std::nullopt;
  }
  std::string password;
  if (!readFile(file, &password)) return std::nullopt;
  ::utimensat(AT_FDCWD, file.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
  return password;
}

void forgetPassword(const std::string& keychain) {
  const std::string file = fileFor(keychain);
  if (isPrivate(runtimeFolder()) && itemExistsNoFollow(file)) removeItem(file);
}

void forgetAllPasswords() {
  if (isPrivate(runtimeFolder())) removeItem(runtimeFolder());
}

std::optional<std::string> keyPassword(const std::string& keychain) {
  if (auto password = rememberedPassword(keychain)) return password;
  const char* given = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
  if (given == nullptr || !fitsPasswordRecord(keychain, given)) return std::nullopt;
  return given;
}

}  // namespace tovrek::keychain
