#include "converter/validation.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "converter/common.h"
#include "host/files.h"
#include "host/paths.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek {

using namespace converter;

namespace {

using Text = std::optional<std::string>;

constexpr uint64_t kMaxLogLevel = 4;
constexpr int64_t kDefaultLogLevel = 2;

bool failInvalidInput(ErrorText* error, const Text& path) {
  return fail(error, fmt::format("Input file ({}) is invalid.", path.value_or("")));
}

// A negative level is out of range as well. The bad value does not stay.
bool checkLevel(int64_t* level, ErrorText* error) {
  if (static_cast<uint64_t>(*level) <= kMaxLogLevel) return true;
  const int64_t given = *level;
  *level = kDefaultLogLevel;
  return fail(
      error,
      fmt::format("Specified log level ({}) is out of range, it must be from 0 to 4.", given));
}

bool checkOutputFolder(const Text& output, ErrorText* error) {
  if (!output || isWritable(containingFolder(*output))) return true;
  return fail(error, fmt::format("Could not write to output path ({}). Make sure this location "
                                 "exists and that you have write access to it.",
                                 containingFolder(*output)));
}

bool checkExistsWhenSet(const Text& path, ErrorText* error) {
  return !path || fileExists(*path) || failMissingFile(error, *path);
}

bool validateModesAndLevels(Request& request, ErrorText* error) {
  if (request.isSDK && !request.isUpdate && isEmpty(request.appMode)) {
    return fail(error, "App mode not specified for SDK option");
  }
  if (!request.isSDK && !request.isUpdate && !isEmpty(request.appStoreUrl)) {
    return fail(error, "SDK Option is not specified");
  }
  return checkLevel(&request.logDisplayLevel, error) && checkLevel(&request.logWriteLevel, error);
}

bool validateCertificate(Request& request, const RunContext& context, ErrorText* error) {
  std::string name = request.certificate.value_or("");
  ProvisioningProfile profile(*request.provisionProfile, context);
  const std::vector<std::string>* listed = profile.getCertificates(nullptr);
  if (listed != nullptr && std::ranges::find(*listed, name) != listed->end()) return true;

  // A digest may be given in groups of digits.
  if (checkIfStringisHex(name)) std::erase(name, ' ');
  request.certificate = name;
  const auto known = ProvisioningProfile::doesCertificateExistWithSHA1(name, context, error);
  if (!known || *known) return known.has_value();
  return fail(error,
              fmt::format("iOS distribution certificate name ({}) does not match certificates "
                          "listed in the iOS distribution provisioning profile. Please choose a "
                          "valid certificate that matches those in the specified distribution "
                          "provisioning profile.",
                          name));
}

bool validateInput(Request& request, const RunContext& context, ErrorText* error) {
  const Text& input = request.inputFile;
  if (!input || !fileExists(*input)) return failMissingFile(error, input.value_or(""));
  if (request.command == CommandWord::kSetInfo && pathExtension(*input) != "wex") {
    // Names the option, not the path.
    return fail(error, fmt::format("Input file ({}) is not WEX.", "-in"));
  }
  if (request.command == CommandWord::kSdkPrep) return true;
  if (!request.provisionProfile || !isPlainFile(*request.provisionProfile)) {
    return failMissingFile(error, request.provisionProfile.value_or(""));
  }
  return validateCertificate(request, context, error);
}

bool validateOutput(Request& request, ErrorText* error) {
  if (!checkOutputFolder(request.outputFile, error)) return false;
  if (!checkOutputFolder(request.outputBundleFile, error)) return false;
  if (request.isResign && pathExtension(request.inputFile.value_or("")) != "ipa") {
    return failInvalidInput(error, request.inputFile);
  }
  if (request.outputFile) {
    const std::string extension = pathExtension(*request.outputFile);
    if (extension.empty()) {
      *request.outputFile += ".wex";
    } else if (!request.isResign && toLowerAscii(extension) != "wex") {
      return fail(error, "Output file has incorrect extension, it must be '.wex'");
    }
  }
  const Text& bundle = request.outputBundleFile;
  if (bundle && toLowerAscii(pathExtension(*bundle)) != "ipa") {
    return fail(error, "Output bundle file has incorrect extension, it must be '.ipa'");
  }
  return true;
}

}  // namespace

bool checkIfStringisHex(std::string_view text) {
  return text.find_first_of("0123456789ABCDEFabcdef") != std::string_view::npos;
}

bool validate(Request& request, const RunContext& context, ErrorText* error) {
  const std::string extension = pathExtension(request.inputFile.value_or(""));
  const bool isApk = equalsIgnoringCase(extension, "apk");
  if (equalsIgnoringCase(extension, "cma")) request.isUpdate = true;

  if (!isApk && !validateModesAndLevels(request, error)) return false;
  if (!isApk && !request.isUpdate && !validateInput(request, context, error)) return false;
  if (!validateOutput(request, error)) return false;
  if (isApk) return true;
  if (!checkExistsWhenSet(request.appSpecificPolicyFilepath, error)) return false;
  if (!checkExistsWhenSet(request.entitlementsPath, error)) return false;
  if (request.isWEXSigning && extension != "wex") return failInvalidInput(error, request.inputFile);
  return true;
}

}  // namespace tovrek
