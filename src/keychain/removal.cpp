#include "keychain/removal.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/files.h"
#include "host/paths.h"
#include "keychain/item_files.h"
#include "keychain/key_files.h"
#include "keychain/unlocking.h"

namespace tovrek::keychain {

namespace {

struct Content {
  long wanted = 0, other = 0;
};

// What cannot be read holds nothing that could be named.
Content contentOf(const std::string& file, const std::optional<std::string>& password,
                  const Certificate& certificate, bool withKey) {
  const std::string id = publicKeyId(certificate);
  std::string bytes;
  Content content;
  if (!readFile(file, &bytes)) return content;
  const std::string name = lastPathComponent(file);
  if (canWait(name, bytes)) {
    content.wanted = withKey && deletingPathExtension(name) == id ? 1 : 0;
    return content;
  }
  Items items;
  if (readItems(bytes, std::nullopt, &items) == ReadResult::kWrongPassword && password) {
    items = {};
    readItems(bytes, password, &items);
  }
  content.wanted = std::ranges::count_if(
      items.certificates, [&](const Certificate& each) { return each.der() == certificate.der(); });
  if (withKey) {
    content.wanted += std::ranges::count_if(
        items.keys, [&](const PrivateKey& key) { return publicKeyId(key) == id; });
  }
  content.other = std::ssize(items.certificates) + std::ssize(items.keys) - content.wanted;
  return content;
}

}  // namespace

bool removeFromKeychain(const std::string& keychain, const Certificate& certificate, bool withKey,
                        ErrorText* error) {
  if (!isDirectory(keychain)) return fail(error, "The keychain is a single file.");
  const auto names = listDirectory(keychain, error);
  if (!names) return false;
  const auto password = rememberedPassword(keychain);
  std::vector<std::string> files;
  for (const std::string& name : *names) {
    const std::string file = joinPath(keychain, name);
    if (!isKeychainFileName(name) || !isPlainFile(file)) continue;
    const Content content = contentOf(file, password, certificate, withKey);
    if (content.wanted == 0) continue;
    if (content.other > 0) return fail(error, fmt::format("{} holds other items too.", file));
    files.push_back(file);
  }
  return std::ranges::all_of(files,
                             [&](const std::string& file) { return removeItem(file, error); });
}

}  // namespace tovrek::keychain
