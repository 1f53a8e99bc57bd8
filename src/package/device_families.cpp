#include "package/device_families.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <vector>

namespace tovrek {
namespace {

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

std::string getExcludedDevicesStringFromDevicesArray(const PlistValue* devices,
                                                     const WrapperLogger& logger) {
  if (devices == nullptr) return "";
  const auto families = deviceFamilies(*devices);
  if (!families) {
    logger.logWarning(
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

}  // namespace tovrek
