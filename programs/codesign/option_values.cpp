#include "programs/codesign/option_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>

#include "signing/signing_rules.h"

namespace tovrek::codesign {
namespace {

// What stands between commas; one empty word for an empty list.
std::vector<std::string> wordsIn(const std::string& list) {
  std::vector<std::string> words;
  for (size_t at = 0; at <= list.size();) {
    const size_t comma = std::min(list.find(',', at), list.size());
    words.push_back(list.substr(at, comma - at));
    at = comma + 1;
  }
  return words;
}

struct PreservedName {
  std::string_view name;
  bool signing::PreservedMetadata::*flag;  // null for what signatures made here never have
};
constexpr PreservedName kPreservedNames[] = {
    {"identifier", &signing::PreservedMetadata::identifier},
    {"requirements", &signing::PreservedMetadata::requirements},
    {"entitlements", &signing::PreservedMetadata::entitlements},
    {"resource-rules", &signing::PreservedMetadata::resourceRules},
    {"flags", &signing::PreservedMetadata::flags},
    {"team-identifier", &signing::PreservedMetadata::teamId},
    {"runtime", &signing::PreservedMetadata::runtime},
    {"launch-constraints", nullptr},
    {"library-constraints", nullptr},
    {"linker-signed", nullptr},
};

// An exact name, else the only one that starts so.
const PreservedName* preservedName(std::string_view word) {
  const PreservedName* found = nullptr;
  for (const PreservedName& each : kPreservedNames) {
    if (word.empty() || !each.name.starts_with(word)) continue;
    if (word == each.name) return &each;
    if (found != nullptr) return nullptr;
    found = &each;
  }
  return found;
}

}  // namespace

bool parsePreserved(const std::string& list, signing::PreservedMetadata* preserve,
                    ErrorText* error) {
  for (const std::string& word : wordsIn(list)) {
    const PreservedName* known = preservedName(word);
    if (known == nullptr) {
      return fail(error, fmt::format("\"{}\" is not a part of a signature to preserve", word));
    }
    if (known->flag != nullptr) preserve->*known->flag = true;
  }
  return true;
}

bool parseFlags(const std::string& text, std::optional<uint32_t>* flags, ErrorText* error) {
  uint32_t value = 0;
  const bool isHex = text.starts_with("0x");
  const char* begin = text.data() + (isHex ? 2 : 0);
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(begin, end, value, isHex ? 16 : 10);
  if (code == std::errc() && stop == end) {
    *flags = value;
    return true;
  }
  value = 0;
  for (const std::string& name : wordsIn(text)) {
    const uint32_t flag = signing::flagByName(name);
    if (flag == 0) return fail(error, fmt::format("unknown option flag \"{}\"", name));
    value |= flag;
  }
  *flags = value;
  return true;
}

bool parseDigests(const std::vector<std::string>& lists, std::vector<signing::HashKind>* digests,
                  ErrorText* error) {
  bool sha1 = false;
  bool sha256 = false;
  for (const std::string& list : lists) {
    for (const std::string& name : wordsIn(list)) {
      sha1 |= name == "sha1";
      sha256 |= name == "sha256";
      if (name != "sha1" && name != "sha256") {
        return fail(error, fmt::format("unknown digest algorithm \"{}\"", name));
      }
    }
  }
  if (sha1) digests->push_back(signing::kSha1);
  if (sha256) digests->push_back(signing::kSha256);
  return true;
}

bool parsePageSize(const std::string& text, uint8_t* log2, ErrorText* error) {
  uint32_t size = 0;
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, size);
  if (code != std::errc() || stop != end || !std::has_single_bit(size) || size < 4096 ||
      size > 65536) {
    return fail(error, fmt::format("page size \"{}\" is no power of two from 4096 to 65536", text));
  }
  *log2 = static_cast<uint8_t>(std::countr_zero(size));
  return true;
}

bool parseRuntime(const std::string& text, std::optional<uint32_t>* version, ErrorText* error) {
  uint32_t parts[3] = {};
  const char* at = text.data();
  const char* end = at + text.size();
  for (size_t i = 0; i < 3; ++i) {
    const auto [stop, code] = std::from_chars(at, end, parts[i]);
    if (code != std::errc() || parts[i] > (i == 0 ? 0xffffU : 0xffU)) break;
    if (stop == end) {
      *version = parts[0] << 16 | parts[1] << 8 | parts[2];
      return true;
    }
    if (*stop != '.') break;
    at = stop + 1;
  }
  return fail(error, fmt::format("runtime version \"{}\" is not of the form 10.15.4", text));
}

}  // namespace tovrek::codesign
