#include "package/url_schemes.h"

#include <algorithm>
#include <iterator>

namespace tovrek {
namespace {

// Whether one of the URL type's schemes contains the group's text. Every text contains the empty
// one, so no group is asked for first.
bool belongsToGroup(const PlistValue& urlType, const std::string& group) {
  const PlistDictionary* type = urlType.dictionary();
  const PlistValue::Array* schemes =
      type != nullptr ? arrayForKey(*type, "CFBundleURLSchemes") : nullptr;
  if (group.empty() || schemes == nullptr) return false;
  return std::any_of(schemes->begin(), schemes->end(), [&](const PlistValue& scheme) {
    return scheme.string() != nullptr && scheme.string()->find(group) != std::string::npos;
  });
}

}  // namespace

bool AddURLScheme(const std::string& url, const std::string& group, PlistDictionary& infoPlist) {
  constexpr char kUrlTypes[] = "CFBundleURLTypes";
  PlistValue::Array types;
  if (const PlistValue::Array* present = arrayForKey(infoPlist, kUrlTypes)) {
    std::copy_if(present->begin(), present->end(), std::back_inserter(types),
                 [&](const PlistValue& type) { return !belongsToGroup(type, group); });
  }
  PlistDictionary added;
  added.set("CFBundleTypeRole", "Editor");
  added.set("CFBundleURLName", "com.orvane.SingleSignOn");
  added.set("CFBundleURLSchemes", PlistValue::Array{url});
  types.emplace_back(std::move(added));
  infoPlist.set(kUrlTypes, std::move(types));
  return true;
}

bool addURLSchemes(const std::vector<std::string>& schemes, PlistDictionary& infoPlist,
                   const WrapperLogger& logger) {
  constexpr char kQueriedSchemes[] = "LSApplicationQueriesSchemes";
  if (infoPlist.empty()) {
    logger.logError("The info plist dictionary was empty");
    return false;
  }
  PlistValue::Array merged;
  const PlistValue::Array* present = arrayForKey(infoPlist, kQueriedSchemes);
  const auto add = [&](const PlistValue& scheme) {
    // Only a list that was there already is made free of duplicates.
    const bool known = std::find(merged.begin(), merged.end(), scheme) != merged.end();
    if (present == nullptr || !known) merged.push_back(scheme);
  };
  if (present != nullptr) std::for_each(present->begin(), present->end(), add);
  for (const std::string& scheme : schemes) add(PlistValue(scheme));
  infoPlist.set(kQueriedSchemes, std::move(merged));
  return true;
}

std::vector<std::string> defaultURLSchemesToWhitelist() {
  // The colon is part of the sixth.
  return {"com.orvane.hollin",
          "com.orvane.pilot",
          "quillexdmpostenroll",
          "com.orvane.keystead.fd",
          "orvanelanternfd",
          "col-brv-2:",
          "orvmobilebrowser",
          "orvmobilebrowsers",
          "orvmail",
          "com.orvane.orvmail",
          "orvmailex",
          "orvinternalmail",
          "orvnote"};
}

}  // namespace tovrek
