#include "device/grants.h"

#include <algorithm>

namespace tovrek::device {
namespace {

// Whether a single granted value, or one of a list of them, admits a single wanted one.
bool admitsSingle(const PlistValue& granted, const PlistValue& wanted) {
  if (const PlistValue::Array* list = granted.array()) {
    return std::ranges::any_of(
        *list, [&](const PlistValue& each) { return !each.array() && admitsSingle(each, wanted); });
  }
  if (granted.string() && wanted.string()) return admits(*granted.string(), *wanted.string());
  return granted == wanted;
}

}  // namespace

bool admits(const std::string& granted, const std::string& wanted) {
  if (!granted.ends_with('*')) return granted == wanted;
  return wanted.starts_with(granted.substr(0, granted.size() - 1));
}

std::optional<PlistValue> grantedPart(const PlistValue& granted, const PlistValue& wanted) {
  const PlistValue::Array* list = wanted.array();
  if (list == nullptr) {
    return admitsSingle(granted, wanted) ? std::optional(wanted) : std::nullopt;
  }
  PlistValue::Array part;
  std::ranges::copy_if(*list, std::back_inserter(part),
                       [&](const PlistValue& entry) { return admitsSingle(granted, entry); });
  if (part.empty() && !list->empty()) return std::nullopt;
  return PlistValue(std::move(part));
}

std::vector<std::string> notGranted(const PlistDictionary& granted, const PlistDictionary& wanted) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : wanted) {
    const PlistValue* grant = granted.find(key);
    const auto part = grant != nullptr ? grantedPart(*grant, value) : std::nullopt;
    if (!part || *part != value) keys.push_back(key);
  }
  return keys;
}

}  // namespace tovrek::device
