// The Info.plist part of HelperMethods: URL schemes, device families, the settings file.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "log/module_loggers.h"
#include "package/HelperMethods.h"

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

// A device family, which some apps write as text.
std::optional<double> deviceFamily(const PlistValue& entry) {
  if (const bool* flag = entry.boolean()) return *flag ? 1 : 0;
  if (const auto number = entry.number()) return number;
  const std::string* text = entry.string();
  if (text == nullptr) return std::nullopt;
  double value = 0;
  const char* end = text->data() + text->size();
  const auto parsed = std::from_chars(text->data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

// The entries as numbers; none when one of them cannot be read as a number.
std::optional<std::vector<double>> deviceFamilies(const PlistValue& devices) {
  const PlistValue::Array* entries = devices.array();
  if (entries == nullptr) return std::nullopt;
  std::vector<double> families;
  for (const PlistValue& entry : *entries) {
    const auto family = deviceFamily(entry);
    if (!family) return std::nullopt;
    families.push_back(*family);
  }
  return families;
}

}  // namespace

bool HelperMethods::AddURLScheme(const std::string& url, const std::string& group,
                                 PlistDictionary& infoPlist) {
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

bool HelperMethods::addURLSchemes(const std::vector<std::string>& schemes,
                                  PlistDictionary& infoPlist) {
  constexpr char kQueriedSchemes[] = "LSApplicationQueriesSchemes";
  if (infoPlist.empty()) {
    Global_ManifestLib_logger().logError("The info plist dictionary was empty");
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

std::vector<std::string> HelperMethods::defaultURLSchemesToWhitelist() {
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

std::string HelperMethods::getExcludedDevicesStringFromDevicesArray(const PlistValue* devices) {
  if (devices == nullptr) return "";
  const auto families = deviceFamilies(*devices);
  if (!families) {
    Global_ManifestLib_logger().logWarning(
        "Could not get list of excluded devices, incompatable datatype for UIDeviceFamily");
    return "";
  }
  constexpr double kPhone = 1;
  constexpr double kPad = 2;
  double sum = 0;
  for (const double family : *families) sum += family;
  if (sum >= kPhone + kPad) return "";  // runs on both
  std::string excluded;
  for (const double family : *families) {
    if (family == kPhone) excluded += "ipad";
    if (family == kPad) excluded += "iphone";
  }
  return excluded;
}

bool HelperMethods::GenerateOrvanePlistFile(const PlistDictionary& dictionary,
                                            const std::string& path) {
  return !path.empty() && writePlist(path, dictionary, PlistFormat::kXml);
}

}  // namespace tovrek
