// security cms: decoding, signing and showing of messages, such as provisioning profiles.
#include <fmt/format.h>

#include "formats/cms_content.h"
#include "formats/hex.h"
#include "host/files.h"
#include "host/paths.h"
#include "keychain/identities.h"
#include "keychain/locations.h"
#include "programs/security/Options.h"
#include "programs/security/cms_signing.h"
#include "programs/security/commands.h"
#include "programs/security/item_search.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

int unreadable(std::string_view path, const ErrorText& error, const Streams& streams) {
  return reportFailure(fmt::format("unable to open \"{}\" for reading: {}", path, error.text()),
                       streams);
}

bool readInput(const Options& options, std::string* bytes, int* status, const Streams& streams) {
  const std::string input = options.value('i').value_or("/dev/stdin");
  ErrorText error;
  if (readFile(input, bytes, &error)) return true;
  *status = unreadable(input, error, streams);
  return false;
}

int decode(const Options& options, const Streams& streams) {
  int status = kSuccess;
  ErrorText error;
  std::string message;
  if (!readInput(options, &message, &status, streams)) return status;
  auto content = cmsContent(message, &error);
  if (!content) {
    streams.error(fmt::format("security: failed to decode message: {}\n", error.text()));
    return reportFailure("problem decoding", streams);
  }
  if (const auto detached = options.value('c'); detached && isDetached(message)) {
    if (!readFile(*detached, &*content, &error)) return unreadable(*detached, error, streams);
  }
  return writeResult(options.value('o'), *content, streams);
}

// By name or by the subject's key identifier; of several with one name, one that is valid today.
std::optional<keychain::Identity> signerFor(const Options& options,
                                            const std::vector<keychain::Keychain>& keychains) {
  std::optional<keychain::Identity> chosen;
  for (auto& found : identitiesBy(keychains, options.value('N'), std::nullopt)) {
    const Certificate& leaf = found.item.leaf;
    if (const auto id = options.value('Z');
        id && !equalsIgnoringCase(hexLower(leaf.subjectKeyIdentifier()), *id)) {
      continue;
    }
    if (!chosen || (!keychain::isValidNow(chosen->leaf) && keychain::isValidNow(leaf))) {
      chosen = std::move(found.item);
    }
  }
  if (chosen) chosen->chain = keychain::completeChain(keychains, chosen->leaf);
  return chosen;
}

int sign(const Options& options, std::vector<keychain::Keychain> keychains,
         const Streams& streams) {
  if (!options.has('N') && !options.has('Z')) return kUsage;
  if (keychains.empty()) keychains = keychain::openSearchList();
  tellUnreadable(keychains, streams);
  const auto signer = signerFor(options, keychains);
  const std::string wanted = options.value('N').value_or(options.value('Z').value_or(""));
  if (!signer) {
    streams.error(fmt::format("security: no identity \"{}\" to sign with\n", wanted));
    return reportFailure("problem signing", streams);
  }
  int status = kSuccess;
  std::string content;
  if (!readInput(options, &content, &status, streams)) return status;
  CmsOptions how;
  how.digest = options.value('H').value_or(how.digest);
  how.detached = options.has('T');
  ErrorText error;
  const auto message = signedMessage(content, *signer, how, &error);
  if (message) return writeResult(options.value('o'), *message, streams);
  streams.error(fmt::format("security: failed to sign with \"{}\": {}\n", wanted, error.text()));
  return reportFailure("problem signing", streams);
}

}  // namespace

int cms(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "DSi:o:k:u:nc:N:TGPH:Z:Y:");
  if (!options || options->has('D') == options->has('S') || !options->operands().empty()) {
    return kUsage;
  }
  std::vector<keychain::Keychain> keychains;
  if (const auto named = options->value('k')) {
    ErrorText error;
    auto opened = keychain::openKeychain(*named, &error);
    if (!opened) {
      return reportFailure(fmt::format("unable to open keychain \"{}\": {}", *named, error.text()),
                           streams);
    }
    keychains.push_back(std::move(*opened));
  }
  return options->has('D') ? decode(*options, streams)
                           : sign(*options, std::move(keychains), streams);
}

}  // namespace tovrek::security
