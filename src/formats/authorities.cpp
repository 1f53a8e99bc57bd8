#include "formats/authorities.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "formats/openssl_owners.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {
namespace {

constexpr std::string_view kSystemKeychain =
    "System/Library/Keychains/SystemRootCertificates.keychain";
// Far above any certificate.
constexpr uint64_t kLargestFile = 1 << 20;

bool isCertificateName(const std::string& name) {
  static constexpr std::array<std::string_view, 4> kExtensions = {"cer", "crt", "der", "pem"};
  return std::ranges::find(kExtensions, toLowerAscii(pathExtension(name))) != kExtensions.end();
}

void addFrom(const std::string& bytes, std::vector<Certificate>* found) {
  if (bytes.find("-----BEGIN ") == std::string::npos) {
    if (auto certificate = Certificate::fromDer(bytes)) found->push_back(std::move(*certificate));
    return;
  }
  const BioOwner source = readingFrom(bytes);
  while (X509* x509 = PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr)) {
    found->push_back(Certificate::of(X509Owner(x509)));
  }
  ERR_clear_error();  // the end of the file counts as an error
}

std::vector<Certificate> certificatesOf(const std::string& folder) {
  std::vector<Certificate> found;
  const auto names = folder.empty() ? std::nullopt : listDirectory(folder);
  if (!names) return found;
  for (const std::string& name : *names) {
    const std::string file = joinPath(folder, name);
    std::string bytes;
    if (isCertificateName(name) && isPlainFile(file) &&
        fileSize(file).value_or(kLargestFile + 1) <= kLargestFile && readFile(file, &bytes)) {
      addFrom(bytes, &found);
    }
  }
  return found;
}

}  // namespace

std::string systemKeychain() {
  std::vector<std::string> hostRoots;
  if (const char* named = std::getenv("TOVREK_HOST_ROOT"); named != nullptr && *named != '\0') {
    hostRoots.push_back(standardizePath(named));
  }
  // A companion lies in usr/bin of its host root, the toolkit beside it.
  hostRoots.push_back(containingFolder(containingFolder(programFolder())));
  hostRoots.push_back(joinPath(programFolder(), "host"));
  for (const std::string& root : hostRoots) {
    const std::string folder = joinPath(root, kSystemKeychain);
    if (isDirectory(folder)) return folder;
  }
  return "";
}

std::vector<Certificate> systemCertificates() {
  return certificatesOf(systemKeychain());
}

std::vector<std::string> rootFolders() {
  const char* home = std::getenv("XDG_CONFIG_HOME");
  const std::string config = home != nullptr && *home == '/' ? home : standardizePath("~/.config");
  return {joinPath(config, "tovrek/roots"), "/etc/tovrek/roots"};
}

std::vector<Certificate> furtherRoots() {
  std::vector<Certificate> roots;
  for (const std::string& folder : rootFolders()) {
    std::ranges::move(certificatesOf(folder), std::back_inserter(roots));
  }
  std::erase_if(roots, [](const Certificate& each) { return !each.isSelfSigned(); });
  return roots;
}

std::vector<Certificate> authorityCertificates() {
  std::vector<Certificate> all = systemCertificates();
  std::ranges::move(furtherRoots(), std::back_inserter(all));
  return all;
}

}  // namespace tovrek
