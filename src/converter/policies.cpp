#include "converter/policies.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "converter/steps.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/WEXPolicyMetadata.h"
#include "package/XMParserHelper.h"

namespace tovrek::converter {
namespace {

constexpr char kPolicyFile[] = "policy_metadata.xml";
constexpr char kDefaultsFile[] = "default_wex_policies.xml";

bool isNetworkOnly(const Request& request, const std::string& appPath) {
  return request.library == LibraryKind::kNetworkOnly ||
         (request.isSDK && fileExists(joinPath(appPath, "Frameworks/WEXNetworkOnly.framework")));
}

// The file of one app in the content folder; empty without an identifier.
std::string policyFileName(const std::optional<std::string>& bundleId, const std::string& suffix) {
  return bundleId ? *bundleId + suffix : std::string();
}

// An identifier comes from the app: with a "/" it is no file name of ours.
bool isInFolder(const std::string& folder, const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos && fileExists(joinPath(folder, name));
}

bool checkUserPolicy(const WrapperLogger& log, const std::string& path, ErrorText* error) {
  std::string data;
  ErrorText reason;
  if (!readFile(path, &data, &reason))
    return fail(error, fmt::format("{}: {}", path, reason.text()));
  if (data.empty()) return fail(error, path + ": the file is empty");
  XMParserHelper parser(log);
  if (!parser.initXMLParser(data)) {
    systemLog(" The XML suplied is not proper or malformed");
    return fail(error, parser.parserError().value_or(""));
  }
  systemLog(" The XML is fine " + path);
  return true;
}

bool findPolicyLanguages(const std::string& folder, std::vector<std::string>* languages,
                         ErrorText* error) {
  ErrorText reason;
  const auto names = listDirectory(folder, &reason);
  if (!names) return fail(error, fmt::format("{}: {}", folder, reason.text()));
  languages->clear();
  for (const std::string& name : *names) {
    if (name.starts_with("strings-")) languages->push_back(name);
  }
  return true;
}

// The file in the content folder that is made for the app. Two identifiers may name it, and none
// may be there.
bool findPolicyOfApp(const Run& run, const std::string& suffix, std::string* source, bool* exists,
                     ErrorText* error) {
  std::string name = policyFileName(run.replacementBundleID, suffix);
  if (!isInFolder(run.contentPath, name)) name = policyFileName(run.originalBundleID, suffix);
  systemLog("the policy metadata file is " + name);
  if (name.empty()) return failMissingFile(error, suffix);
  *source = run.contentFile(name);
  *exists = isInFolder(run.contentPath, name);
  systemLog("the Whole path for policy metadata file is " + *source);
  return true;
}

}  // namespace

bool copyPolicyXMLToDir(const Run& run, const std::string& packageDir, const std::string& appPath,
                        const std::vector<std::string>& policyLanguages, ErrorText* error) {
  const std::string variant = isNetworkOnly(run.request, appPath) ? "mvpnonly_" : "";
  std::string source;
  bool sourceExists = false;
  if (const auto& given = run.request.appSpecificPolicyFilepath) {
    source = *given;
    if (!checkUserPolicy(run.context.loggers.manifest, source, error)) return false;
    sourceExists = fileExists(source);
  } else if (!findPolicyOfApp(run, "_" + variant + kPolicyFile, &source, &sourceExists, error)) {
    return false;
  }

  systemLog(source + (sourceExists ? " file exists" : " file does not exist"));
  if (!sourceExists) source = run.contentFile(variant + kPolicyFile);
  if (!replaceByCopy(source, joinPath(packageDir, kPolicyFile), error) ||
      !replaceByCopy(source, joinPath(appPath, kPolicyFile), error) ||
      !constructDefaultWexPolicesXMLFile(run.context.loggers.manifest, source,
                                         joinPath(appPath, kDefaultsFile), error)) {
    return false;
  }
  for (const std::string& language : policyLanguages) {
    if (!replaceByCopy(run.contentFile(language), joinPath(packageDir, language), error))
      return false;
  }
  return true;
}

bool constructDefaultWexPolicesXMLFile(const WrapperLogger& log, const std::string& source,
                                       const std::string& target, ErrorText* error) {
  WEXPolicyMetadata policies(log);
  if (policies.startParsingXMLFile(source) &&
      policies.generateDefaultWexPolicesXMLAtFilePath(target)) {
    return true;
  }
  return fail(error, fmt::format("ERROR: Could not generate ({}) file, there was an issue parsing "
                                 "{} file.",
                                 kDefaultsFile, source));
}

bool placePolicies(Run& run, ErrorText* error) {
  return findPolicyLanguages(run.contentPath, &run.policyLanguages, error) &&
         copyPolicyXMLToDir(run, run.packageDir(), run.appPath, run.policyLanguages, error);
}

}  // namespace tovrek::converter
