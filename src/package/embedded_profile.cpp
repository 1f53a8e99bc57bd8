#include "package/embedded_profile.h"

#include <fmt/format.h>

#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "package/value_text.h"

namespace tovrek {
namespace {

// The property list in a profile, from its XML declaration to the first end tag.
std::optional<std::string> embeddedPlistText(const std::string& profile) {
  constexpr std::string_view kDeclaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";
  constexpr std::string_view kEnd = "</plist>";
  const size_t start = profile.find(kDeclaration);
  if (start == std::string::npos) return std::nullopt;
  const size_t end = profile.find(kEnd, start);
  if (end == std::string::npos) return std::nullopt;
  return profile.substr(start, end + kEnd.size() - start);
}

std::optional<PlistValue> valueForKeyPath(const PlistDictionary& root, std::string_view keyPath) {
  const PlistDictionary* dictionary = &root;
  for (;;) {
    const size_t dot = keyPath.find('.');
    const PlistValue* value = dictionary->find(keyPath.substr(0, dot));
    if (value == nullptr) return std::nullopt;
    if (dot == std::string_view::npos) return *value;
    dictionary = value->dictionary();
    if (dictionary == nullptr) return std::nullopt;
    keyPath.remove_prefix(dot + 1);
  }
}

}  // namespace

std::optional<PlistValue> ReadEmbeddedProfile(const std::string& path, std::string_view keyPath,
                                              const WrapperLogger& logger) {
  ErrorText error;
  std::string profile;
  if (!readFile(path, &profile, &error)) {
    logger.logError(error.text());
    return std::nullopt;
  }
  const std::optional<std::string> text = embeddedPlistText(profile);
  const std::optional<PlistValue> plist = text ? parsePlist(*text) : std::nullopt;
  if (!plist || plist->dictionary() == nullptr) {
    logger.logError(fmt::format("Could not read from {}", path));
    return std::nullopt;
  }
  return valueForKeyPath(*plist->dictionary(), keyPath);
}

std::optional<std::string> profileExpiry(const std::string& bundlePath,
                                         const WrapperLogger& logger) {
  const auto expiration = ReadEmbeddedProfile(joinPath(bundlePath, "embedded.mobileprovision"),
                                              "ExpirationDate", logger);
  if (!expiration) return std::nullopt;
  const PlistValue::Date* day = expiration->date();
  return day != nullptr ? dateDescription(day->secondsSince1970) : returnString(&*expiration);
}

}  // namespace tovrek
