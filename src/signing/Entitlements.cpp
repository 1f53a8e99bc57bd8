#include "signing/Entitlements.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "formats/entitlement_keys.h"
#include "signing/CodeDirectory.h"

namespace tovrek::signing {
namespace {

enum DerTag : unsigned char {
  kBoolean = 0x01,
  kInteger = 0x02,
  kUtf8String = 0x0c,
  kSequence = 0x30,
  kApplication16 = 0x70,
  kContext16 = 0xb0,
};
constexpr int kDeepestNesting = 64;

std::string element(DerTag tag, std::string_view contents) {
  std::string der(1, static_cast<char>(tag));
  if (contents.size() < 0x80) {
    der.push_back(static_cast<char>(contents.size()));
  } else {
    std::string length;
    for (size_t rest = contents.size(); rest != 0; rest >>= 8) {
      length.insert(length.begin(), static_cast<char>(rest));
    }
    der.push_back(static_cast<char>(0x80 | length.size()));
    der += length;
  }
  return der.append(contents);
}

// Two's complement in as few bytes as keep the sign.
std::string integerElement(uint64_t bits, bool negative) {
  std::string contents;
  appendBig64(&contents, bits);
  const char filler = negative ? '\xff' : '\0';
  contents.insert(contents.begin(), filler);
  const auto redundant = [&] {
    return contents.size() > 1 && contents[0] == filler && ((contents[1] & 0x80) != 0) == negative;
  };
  while (redundant()) contents.erase(contents.begin());
  return element(kInteger, contents);
}

std::optional<std::string> encode(const PlistValue& value, int depth);

std::optional<std::string> encodeDictionary(const PlistDictionary& dictionary, int depth) {
  std::vector<const PlistDictionary::Entry*> entries;
  for (const auto& entry : dictionary) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  std::string contents;
  for (const auto* entry : entries) {
    const auto value = encode(entry->second, depth + 1);
    if (!value) return std::nullopt;
    contents += element(kSequence, element(kUtf8String, entry->first) + *value);
  }
  return element(kContext16, contents);
}

std::optional<std::string> encodeArray(const PlistValue::Array& array, int depth) {
  std::string contents;
  for (const PlistValue& item : array) {
    const auto value = encode(item, depth + 1);
    if (!value) return std::nullopt;
    contents += *value;
  }
  return element(kSequence, contents);
}

std::optional<std::string> encode(const PlistValue& value, int depth) {
  if (depth > kDeepestNesting) return std::nullopt;
  if (const bool* flag = value.boolean())
    return element(kBoolean, *flag ? "\xff" : std::string_view("\0", 1));
  if (const auto* number = value.as<int64_t>()) {
    return integerElement(static_cast<uint64_t>(*number), *number < 0);
  }
  if (const auto* number = value.as<uint64_t>()) return integerElement(*number, false);
  if (const auto* text = value.string()) return element(kUtf8String, *text);
  if (const auto* array = value.array()) return encodeArray(*array, depth);
  if (const auto* dictionary = value.dictionary()) return encodeDictionary(*dictionary, depth);
  return std::nullopt;
}

uint64_t grantedFlags(const PlistDictionary& entitlements) {
  constexpr std::pair<const char*, uint64_t> kGrants[] = {
      {entitlement::kGetTaskAllow, kExecSegAllowUnsigned},
      {"run-unsigned-code", kExecSegAllowUnsigned},
      {"com.apple.private.cs.debugger", kExecSegDebugger},
      {"dynamic-codesigning", kExecSegJit},
      {"com.apple.private.skip-library-validation", kExecSegSkipLibraryValidation},
      {"com.apple.private.amfi.can-load-cdhash", kExecSegCanLoadCdHash},
      {"com.apple.private.amfi.can-execute-cdhash", kExecSegCanExecCdHash},
  };
  uint64_t flags = 0;
  for (const auto& [key, flag] : kGrants) {
    const PlistValue* value = entitlements.find(key);
    const bool* granted = value == nullptr ? nullptr : value->boolean();
    if (granted != nullptr && *granted) flags |= flag;
  }
  return flags;
}

bool isReadByDevices(std::string_view plist) {
  return !plist.starts_with("bplist") && plist.find("<!--") == std::string_view::npos;
}

}  // namespace

std::optional<std::string> derEntitlements(const PlistDictionary& entitlements, ErrorText* error) {
  for (const auto& [key, value] : entitlements) {
    if (!encode(value, 1)) {
      fail(error, fmt::format("the value of entitlement \"{}\" cannot be signed", key));
      return std::nullopt;
    }
  }
  const std::string version("\x02\x01\x01", 3);
  return element(kApplication16, version + *encodeDictionary(entitlements, 0));
}

std::optional<Entitlements> Entitlements::fromPlist(std::string_view bytes, ErrorText* error) {
  if (magicOf(bytes) == kEntitlementsMagic && bytes.size() >= kBlobHeaderSize) {
    bytes = payloadOf(bytes);
  }
  const auto plist = parsePlist(bytes);
  const PlistDictionary* dictionary = plist ? plist->dictionary() : nullptr;
  if (dictionary == nullptr) {
    fail(error, "invalid entitlements (not a property list with a dictionary)");
    return std::nullopt;
  }
  const auto der = derEntitlements(*dictionary, error);
  if (!der) return std::nullopt;
  Entitlements entitlements;
  entitlements.xmlBlob = makeBlob(
      kEntitlementsMagic,
      isReadByDevices(bytes) ? std::string(bytes) : serializePlist(*plist, PlistFormat::kXml));
  entitlements.derBlob = makeBlob(kDerEntitlementsMagic, *der);
  entitlements.execSegFlags = grantedFlags(*dictionary);
  return entitlements;
}

}  // namespace tovrek::signing
