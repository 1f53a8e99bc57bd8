// Property lists of either form, told apart by their first bytes, and access to their values.
#include <string_view>
#include <unordered_map>

#include "formats/PlistValue.h"
#include "formats/plist_readers.h"
#include "host/files.h"

namespace tovrek {
namespace {

constexpr char kNotAPropertyList[] =
    "The data couldn't be read because it isn't in the correct "
    "format";

bool failFormat(ErrorText* error, const std::string& reason) {
  return fail(error, std::string(kNotAPropertyList) + (reason.empty() ? "." : ": " + reason));
}

}  // namespace

PlistDictionary dictionaryOf(std::vector<PlistDictionary::Entry> entries) {
  PlistDictionary result;
  constexpr size_t kFew = 8;  // for which a look at each is quicker than an index
  if (entries.size() <= kFew) {
    for (auto& [key, value] : entries) {
      if (PlistValue* known = result.find(key)) {
        *known = std::move(value);
      } else {
        result.append(std::move(key), std::move(value));
      }
    }
    return result;
  }
  std::unordered_map<std::string_view, size_t> places;
  places.reserve(entries.size());
  std::vector<bool> repeated(entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    const auto [known, isNew] = places.try_emplace(entries[i].first, i);
    if (isNew) continue;
    entries[known->second].second = std::move(entries[i].second);
    repeated[i] = true;
  }
  for (size_t i = 0; i < entries.size(); ++i) {
    if (!repeated[i]) result.append(std::move(entries[i].first), std::move(entries[i].second));
  }
  return result;
}

std::optional<PlistValue> parsePlist(std::string_view bytes, ErrorText* error) {
  const auto read = bytes.starts_with("bplist") ? readBinaryPlist : readXmlPlist;
  std::string reason;
  std::optional<PlistValue> value = read(bytes, limitsInForce(), &reason);
  if (!value) failFormat(error, reason);
  return value;
}

std::optional<PlistDictionary> readPlistDictionary(const std::string& path, ErrorText* error) {
  std::string bytes;
  if (!readFile(path, &bytes, error)) return std::nullopt;
  std::optional<PlistValue> value = parsePlist(bytes, error);
  if (!value) return std::nullopt;
  if (value->dictionary() == nullptr) {
    failFormat(error, "its top level is no dictionary");
    return std::nullopt;
  }
  return std::move(*value->dictionary());
}

}  // namespace tovrek
