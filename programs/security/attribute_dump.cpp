#include "programs/security/attribute_dump.h"

#include <fmt/format.h>

#include "formats/hex.h"
#include "keychain/Keychain.h"

namespace tovrek::security {

namespace {

bool isPlain(char c) {
  return c >= ' ' && c <= '~' && c != '\\';
}

}  // namespace

std::string blobText(std::string_view bytes) {
  if (bytes.empty()) return "<NULL>";
  std::string quoted;
  bool plain = true;
  for (const char c : bytes) {
    if (isPlain(c)) {
      quoted += c;
    } else {
      plain = false;
      quoted += fmt::format("\\{:03o}", static_cast<unsigned char>(c));
    }
  }
  return plain ? fmt::format("\"{}\"", quoted)
               : fmt::format("0x{}  \"{}\"", hexUpper(bytes), quoted);
}

std::string privateKeyDump(const std::string& id, const std::string& name,
                           const std::string& keychainPath) {
  return fmt::format(
      "keychain: \"{}\"\nversion: 256\nclass: 0x00000010 \nattributes:\n"
      "    0x00000000 <uint32>=0x00000010 \n    0x00000001 <blob>={}\n"
      "    0x00000006 <blob>={}\n",
      keychainPath, blobText(name), blobText(bytesFromHex(id).value_or("")));
}

std::string attributeDump(const Certificate& certificate, const std::string& keychainPath) {
  // Encoding 3 is DER; the type is the X.509 version.
  constexpr int kEncoding = 3;
  constexpr int kType = 3;
  std::string text = fmt::format(
      "keychain: \"{}\"\nversion: 256\nclass: 0x80001000 \nattributes:\n", keychainPath);
  const auto blob = [&](std::string_view name, std::string_view bytes) {
    text += fmt::format("    \"{}\"<blob>={}\n", name, blobText(bytes));
  };
  const auto number = [&](std::string_view name, int value) {
    text += fmt::format("    \"{}\"<uint32>=0x{:08X} \n", name, value);
  };
  blob("alis", certificate.emailAddress().value_or(certificate.inferredLabel()));
  number("cenc", kEncoding);
  number("ctyp", kType);
  blob("hpky", bytesFromHex(keychain::publicKeyId(certificate)).value_or(""));
  blob("issu", certificate.issuerDer());
  blob("labl", certificate.inferredLabel());
  blob("skid", certificate.subjectKeyIdentifier());
  blob("snbr", certificate.serialNumber());
  blob("subj", certificate.subjectDer());
  return text;
}

}  // namespace tovrek::security
