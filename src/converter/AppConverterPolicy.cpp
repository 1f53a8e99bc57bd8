// The policy definition of an app, its defaults file, and the policy texts in other languages.
#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "package/WEXPolicyMetadata.h"
#include "package/XMParserHelper.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr char kPolicyFile[] = "policy_metadata.xml";
constexpr char kDefaultsFile[] = "default_wex_policies.xml";

bool isNetworkOnly(const AppConverterParam& param, const std::string& appPath) {
  return param.useNetworkOnlyLib ||
         (param.isSDK && fileExists(joinPath(appPath, "Frameworks/WEXNetworkOnly.framework")));
}

// The file of one app in the content folder; empty without an identifier.
std::string policyFileName(const std::optional<std::string>& bundleId, const std::string& suffix) {
  return bundleId ? *bundleId + suffix : std::string();
}

// An identifier comes from the app: with a "/" it is no file name of ours.
bool isInFolder(const std::string& folder, const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos && fileExists(joinPath(folder, name));
}

bool checkUserPolicy(const std::string& path, ErrorText* error) {
  std::string data;
  readFile(path, &data);
  XMParserHelper parser(Global_ManifestLib_logger());
  if (!parser.initXMLParser(data)) {
    systemLog(" The XML suplied is not proper or malformed");
    return fail(error, parser.parserError().value_or(""));
  }
  systemLog(" The XML is fine " + path);
  return true;
}

}  // namespace

bool AppConverter::copyPolicyXMLToDir(const std::string& packageDir, const std::string& appPath,
                                      const std::vector<std::string>& policyLanguages,
                                      ErrorText* error, const AppConverterParam& param) {
  const std::string variant = isNetworkOnly(param, appPath) ? "mvpnonly_" : "";
  std::string source;
  bool sourceExists = false;
  if (param.appSpecificPolicyFilepath) {
    source = *param.appSpecificPolicyFilepath;
    if (!checkUserPolicy(source, error)) return false;
    sourceExists = fileExists(source);
  } else {
    const std::string suffix = "_" + variant + kPolicyFile;
    std::string name = policyFileName(param.replacementBundleID, suffix);
    if (!isInFolder(contentPath_, name)) name = policyFileName(param.originalBundleID, suffix);
    systemLog("the policy metadata file is " + name);
    if (name.empty()) {
      return fail(error,
                  fmt::format("A required file at this location does not exist: {}", suffix));
    }
    source = contentFile(name);
    sourceExists = isInFolder(contentPath_, name);
    systemLog("the Whole path for policy metadata file is " + source);
  }

  systemLog(source + (sourceExists ? " file exists" : " file does not exist"));
  if (!sourceExists) source = contentFile(variant + kPolicyFile);
  if (!replaceByCopy(source, joinPath(packageDir, kPolicyFile), error) ||
      !replaceByCopy(source, joinPath(appPath, kPolicyFile), error) ||
      !constructDefaultWexPolicesXMLFile(source, joinPath(appPath, kDefaultsFile), error)) {
    return false;
  }
  for (const std::string& language : policyLanguages) {
    if (!replaceByCopy(contentFile(language), joinPath(packageDir, language), error)) return false;
  }
  return true;
}

bool AppConverter::constructDefaultWexPolicesXMLFile(const std::string& source,
                                                     const std::string& target, ErrorText* error) {
  WEXPolicyMetadata policies(Global_ManifestLib_logger());
  if (policies.startParsingXMLFile(source) &&
      policies.generateDefaultWexPolicesXMLAtFilePath(target)) {
    return true;
  }
  return fail(error, fmt::format("ERROR: Could not generate ({}) file, there was an issue parsing "
                                 "{} file.",
                                 kDefaultsFile, source));
}

}  // namespace tovrek
