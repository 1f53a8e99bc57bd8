// The check of the record as a whole, before anything is unpacked.
#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "host/files.h"
#include "host/paths.h"
#include "params/AppConverterParam.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek {
namespace {

using Text = std::optional<std::string>;

constexpr uint64_t kMaxLogLevel = 4;
constexpr int64_t kDefaultLogLevel = 2;

bool isEmpty(const Text& text) {
  return !text || text->empty();
}

bool failMissingFile(ErrorText* error, const Text& path) {
  return fail(
      error, fmt::format("A required file at this location does not exist: {}", path.value_or("")));
}

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
  return !path || fileExists(*path) || failMissingFile(error, path);
}

}  // namespace

bool AppConverterParam::validate(ErrorText* error) {
  const std::string extension = pathExtension(inputFile.value_or(""));
  const bool isApk = equalsIgnoringCase(extension, "apk");
  if (equalsIgnoringCase(extension, "cma")) isUpdate = true;

  if (!isApk && !validateModesAndLevels(error)) return false;
  if (!isApk && !isUpdate && !validateInput(error)) return false;
  if (!validateOutput(error)) return false;
  if (isApk) return true;
  if (!checkExistsWhenSet(appSpecificPolicyFilepath, error)) return false;
  if (!checkExistsWhenSet(entitlementsPath, error)) return false;
  if (isWEXSigning && extension != "wex") return failInvalidInput(error, inputFile);
  return true;
}

bool AppConverterParam::validateModesAndLevels(ErrorText* error) {
  if (isSDK && !isUpdate && isEmpty(appMode)) {
    return fail(error, "App mode not specified for SDK option");
  }
  if (!isSDK && !isUpdate && !isEmpty(appStoreUrl)) {
    return fail(error, "SDK Option is not specified");
  }
  return checkLevel(&logDisplayLevel, error) && checkLevel(&logWriteLevel, error);
}

bool AppConverterParam::validateInput(ErrorText* error) {
  if (!inputFile || !fileExists(*inputFile)) return failMissingFile(error, inputFile);
  if (isSetInfoCommand && pathExtension(*inputFile) != "wex") {
    // Names the option, not the path.
    return fail(error, fmt::format("Input file ({}) is not WEX.", "-in"));
  }
  if (isSdkPrepCommand) return true;
  if (!provisionProfile || !isPlainFile(*provisionProfile)) {
    return failMissingFile(error, provisionProfile);
  }
  return validateCertificate(error);
}

bool AppConverterParam::validateCertificate(ErrorText* error) {
  std::string name = certificate.value_or("");
  ProvisioningProfile profile(*provisionProfile);
  const std::vector<std::string>* listed = profile.getCertificates(nullptr);
  if (listed != nullptr && std::ranges::find(*listed, name) != listed->end()) return true;

  // A digest may be given in groups of digits.
  if (checkIfStringisHex(name)) std::erase(name, ' ');
  certificate = name;
  if (ProvisioningProfile::doesCertificateExistWithSHA1(name)) return true;
  return fail(error,
              fmt::format("iOS distribution certificate name ({}) does not match certificates "
                          "listed in the iOS distribution provisioning profile. Please choose a "
                          "valid certificate that matches those in the specified distribution "
                          "provisioning profile.",
                          name));
}

bool AppConverterParam::validateOutput(ErrorText* error) {
  if (!checkOutputFolder(outputFile, error)) return false;
  if (!checkOutputFolder(outputBundleFile, error)) return false;
  if (isResign && pathExtension(inputFile.value_or("")) != "ipa") {
    return failInvalidInput(error, inputFile);
  }
  if (outputFile) {
    const std::string extension = pathExtension(*outputFile);
    if (extension.empty()) {
      *outputFile += ".wex";
    } else if (!isResign && toLowerAscii(extension) != "wex") {
      return fail(error, "Output file has incorrect extension, it must be '.wex'");
    }
  }
  if (outputBundleFile && toLowerAscii(pathExtension(*outputBundleFile)) != "ipa") {
    return fail(error, "Output bundle file has incorrect extension, it must be '.ipa'");
  }
  return true;
}

}  // namespace tovrek
