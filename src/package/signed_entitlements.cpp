#include "package/signed_entitlements.h"

#include <fmt/format.h>

#include "tools/tool_run.h"

namespace tovrek {
namespace {

Outcome askCodesign(const std::string& path, StandardError complaints) {
  Command command;
  command.argv = {"/usr/bin/codesign", "-d", "--entitlements", ":-", path};
  command.standardError = complaints;
  return runQuietly(command);
}

}  // namespace

std::optional<PlistDictionary> signedEntitlements(const std::string& path, ErrorText* error) {
  const Outcome outcome = askCodesign(path, StandardError::kCapture);
  if (outcome.signalled || outcome.status == kNotStarted) {
    failWithStatus(error, "codesign", outcome.status, outcome.said());
  }
  const auto plist = outcome.status == 0 ? parsePlist(outcome.output) : std::nullopt;
  if (!plist || plist->dictionary() == nullptr) return std::nullopt;
  return *plist->dictionary();
}

std::optional<PlistValue> ReadEmbeddedEntitlements(const std::string& path, std::string_view key,
                                                   const WrapperLogger& logger) {
  const Outcome outcome = askCodesign(path, StandardError::kInherit);
  if (outcome.status != 0) {
    logger.logWarning("Code signature may not exist. Using all default to resign the app.");
    return std::nullopt;
  }
  ErrorText error;
  const std::optional<PlistValue> plist = parsePlist(outcome.output, &error);
  if (!plist) {
    logger.logError(fmt::format("Unable to parse plist - {}", error.text()));
    return std::nullopt;
  }
  const PlistDictionary* entitlements = plist->dictionary();
  const PlistValue* value = entitlements == nullptr ? nullptr : entitlements->find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

}  // namespace tovrek
