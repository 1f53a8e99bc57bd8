// security import: keys and certificates from PKCS #12, PEM and DER files.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "host/files.h"
#include "host/terminal.h"
#include "keychain/item_files.h"
#include "keychain/locations.h"
#include "keychain/settings.h"
#include "keychain/token_keys.h"
#include "keychain/unlocking.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

using keychain::Items;
using keychain::ReadResult;

constexpr std::string_view kImportCall = "SecKeychainItemImport";

// Formats that can be named; which one it is shows in the content.
constexpr std::array<std::string_view, 11> kImportFormats = {
    "openssl", "openssh1", "openssh2", "bsafe",    "raw",   "pkcs7",
    "pkcs8",   "pkcs12",   "x509",     "netscape", "pemseq"};

int refused(ReadResult reason, const Streams& streams) {
  switch (reason) {
    case ReadResult::kWrongPassword:
      return reportFailure(
          fmt::format("{}: MAC verification failed during PKCS12 import (wrong password?)",
                      kImportCall),
          streams);
    case ReadResult::kUnsupported:
      return reportFailure(
          fmt::format("{}: The encryption of this file is not supported by this host's OpenSSL "
                      "(is its legacy provider installed?)",
                      kImportCall),
          streams);
    case ReadResult::kTooCostly:
      return reportFailure(
          fmt::format("{}: The file asks for more than ten million rounds over its password.",
                      kImportCall),
          streams);
    default:
      return reportFailure(fmt::format("{}: Unknown format in import.", kImportCall), streams);
  }
}

// Leaves only what the user asked for with -t.
bool keepType(std::string_view type, Items* items) {
  if (type == "cert") {
    items->keys.clear();
    items->tokenKeys.clear();
  } else if (type == "priv") {
    items->certificates.clear();
  } else if (type != "agg") {
    return false;
  }
  return !items->certificates.empty() || !items->keys.empty() || !items->tokenKeys.empty();
}

void printCount(int count, std::string_view one, std::string_view many, const Streams& streams) {
  if (count > 0) streams.out(fmt::format("{} {} imported.\n", count, count == 1 ? one : many));
}

// Options come in any order, and -T and -a may be repeated. "-a NAME VALUE" is the one that takes
// two words; attributes have no place in a folder, so both are passed over.
Words withoutAttributes(const Words& words) {
  Words result;
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] == "-a" && i + 2 < words.size()) {
      i += 2;
    } else {
      result.push_back(words[i]);
    }
  }
  return result;
}

// "file:PATH" and "fd:N" keep a passphrase out of the list of processes: its first line counts.
bool resolvePassphrase(std::optional<std::string>* password, const Streams& streams) {
  std::string path;
  if (password->value_or("").starts_with("file:")) path = (*password)->substr(5);
  if (password->value_or("").starts_with("fd:")) path = "/dev/fd/" + (*password)->substr(3);
  if (path.empty()) return true;
  std::string contents;
  ErrorText error;
  if (!readFile(path, &contents, &error)) {
    reportFailure(fmt::format("Error reading passphrase from {}: {}", path, error.text()), streams);
    return false;
  }
  *password = contents.substr(0, contents.find_first_of("\r\n"));
  return true;
}

// None where nobody can be asked.
std::optional<std::string> passwordNotGiven() {
  const char* set = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
  if (set != nullptr) return set;
  if (!inputIsTyped()) return std::nullopt;
  return readUnseen("passphrase of the file: ");
}

// The items of a file, or the key on a token that a URI names, on the command line or in a file.
int readInput(const std::string& input, const std::optional<std::string>& password, Items* items,
              const Streams& streams) {
  std::string bytes = input;
  ErrorText error;
  if (!keychain::tokenUriIn(input) && !readFile(input, &bytes, &error)) {
    return reportFailure(fmt::format("Error reading infile {}: {}", input, error.text()), streams);
  }
  if (const auto uri = keychain::tokenUriIn(bytes)) {
    const bool isTyped = keychain::tokenUriIn(input).has_value();
    const auto key = keychain::loadTokenKey(
        *uri, isTyped ? keychain::UriSource::kCommandLine : keychain::UriSource::kFile, &error);
    if (!key) return reportFailure(fmt::format("{}: {}", kImportCall, error.text()), streams);
    items->tokenKeys.push_back({keychain::withoutModule(*uri), keychain::publicKeyId(key)});
    return kSuccess;
  }
  ReadResult read = keychain::readItems(bytes, password, items);
  if (read == ReadResult::kWrongPassword && !password) {
    *items = {};
    const auto other = passwordNotGiven();
    read = keychain::readItems(bytes, other.value_or(""), items);
    if (read == ReadResult::kWrongPassword && !other) {
      return withAdvice(refused(read, streams),
                        "no password was given: -P PASSWORD, or -P file:PATH", streams);
    }
  }
  return read == ReadResult::kRead ? kSuccess : refused(read, streams);
}

}  // namespace

int importItems(const Words& words, const Streams& streams) {
  const auto options = Options::parse(withoutAttributes(words), "k:t:f:wP:xAT:");
  if (!options || options->operands().size() != 1) return kUsage;
  if (const auto format = options->value('f');
      format && std::ranges::find(kImportFormats, *format) == kImportFormats.end()) {
    return kUsage;
  }
  Items items;
  std::optional<std::string> password = options->value('P');
  if (!resolvePassphrase(&password, streams)) return kFailure;
  if (const int status = readInput(options->operands().front(), password, &items, streams);
      status != kSuccess) {
    return status;
  }
  if (!keepType(options->value('t').value_or("agg"), &items)) {
    return refused(ReadResult::kUnknownFormat, streams);
  }

  int status = kSuccess;
  auto into = keychainToFill(options->value('k'), kImportCall, &status, streams);
  if (!into) return status;
  if (!items.keys.empty() && keychain::readSettings(into->path()).encrypted &&
      !keychain::keyPassword(into->path())) {
    return withAdvice(reportStatus(kImportCall, OsStatus::kInteractionNotAllowed, streams),
                      into->path() + " is locked: security unlock-keychain", streams);
  }
  ErrorText error;
  keychain::Keychain::Added added;
  if (!into->add(items, &added, &error)) {
    return reportFailure(fmt::format("{}: {}: {}", kImportCall, into->path(), error.text()),
                         streams);
  }
  if (added.identities + added.keys + added.certificates == 0) {
    return reportStatus(kImportCall, OsStatus::kDuplicateItem, streams);
  }
  printCount(added.identities, "identity", "identities", streams);
  printCount(added.keys, "key", "keys", streams);
  printCount(added.certificates, "certificate", "certificates", streams);
  return kSuccess;
}

}  // namespace tovrek::security
