#include "keychain/unlocking.h"

#include <fmt/format.h>

#include <cstdlib>

#include "formats/Digest.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "keychain/key_files.h"
#include "keychain/password_record.h"
#include "keychain/settings.h"

namespace tovrek::keychain {

namespace {

std::string fileFor(const std::string& keychain) {
  const std::string path = realPath(keychain).value_or(keychain);
  return joinPath(runtimeFolder(), hexLower(digestOf(DigestAlgorithm::kSha256, path)));
}

bool expired(const std::string& file, const std::optional<int>& timeout) {
  const auto changed = modificationTime(file);
  if (!changed) return true;
  return timeout && currentTime() - static_cast<double>(*changed) > *timeout;
}

}  // namespace

// Anybody may make this folder in /dev/shm and /tmp: only one of our own is trusted.
std::string runtimeFolder() {
  const char* named = std::getenv("XDG_RUNTIME_DIR");
  if (named != nullptr && *named == '/' && isDirectory(named)) return joinPath(named, "tovrek");
  const std::string name = fmt::format("tovrek-{}", userId());
  const std::string inMemory = joinPath("/dev/shm", name), other = joinPath("/tmp", name);
  const bool isTaken = itemExistsNoFollow(inMemory) && !isPrivateDirectory(inMemory);
  return isWritable("/dev/shm") && !isTaken ? inMemory : other;
}

bool rememberPassword(const std::string& keychain, std::string_view password, ErrorText* error) {
  const std::string folder = runtimeFolder();
  if (!itemExistsNoFollow(folder)) createPrivateDirectory(folder);
  if (!isPrivateDirectory(folder)) {
    return fail(error, fmt::format("{} is not a folder of this user alone", folder));
  }
  return writeSecret(fileFor(keychain), password, error);
}

std::optional<std::string> rememberedPassword(const std::string& keychain) {
  if (!isPrivateDirectory(runtimeFolder())) return std::nullopt;
  const std::string file = fileFor(keychain);
  if (!fileExists(file)) return std::nullopt;
  if (expired(file, readSettings(keychain).timeout)) {
    forgetPassword(keychain);
    return std::nullopt;
  }
  std::string password;
  if (!readFile(file, &password)) return std::nullopt;
  touchItem(file);
  return password;
}

void forgetPassword(const std::string& keychain) {
  const std::string file = fileFor(keychain);
  if (isPrivateDirectory(runtimeFolder()) && itemExistsNoFollow(file)) removeItem(file);
}

void forgetAllPasswords() {
  if (isPrivateDirectory(runtimeFolder())) removeItem(runtimeFolder());
}

std::optional<std::string> keyPassword(const std::string& keychain) {
  if (auto password = rememberedPassword(keychain)) return password;
  const char* given = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
  if (given == nullptr || !fitsPasswordRecord(keychain, given)) return std::nullopt;
  return given;
}

}  // namespace tovrek::keychain
