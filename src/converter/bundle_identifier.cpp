#include "converter/bundle_identifier.h"

#include <algorithm>

#include "converter/common.h"
#include "host/files.h"

namespace tovrek::converter {

bool doAppBundleIDChange(const std::optional<std::string>& bundleId, const std::string& payloadDir,
                         ErrorText* error) {
  const auto plist = infoPlistPathFromAppPath(payloadDir);
  if (!plist) {
    return fail(error, payloadDir.empty() ? "an app that was given unpacked"
                                          : payloadDir + ": it holds no app");
  }
  // The entry may be another one than the app at hand, and a link.
  if (!liesInside(containingFolder(*plist), payloadDir)) {
    return fail(error, *plist + ": it lies outside of the input, or cannot be reached");
  }
  ErrorText reason;
  return changeBundleIDForFile(*plist, "CFBundleIdentifier", bundleId, PlistFormat::kBinary,
                               &reason) ||
         fail(error, *plist + ": " + reason.text());
}

std::optional<std::string> infoPlistPathFromAppPath(const std::string& folder) {
  if (folder.empty()) return std::nullopt;
  const auto names = listDirectory(folder);
  if (!names) return std::nullopt;
  const auto app = std::find_if(names->begin(), names->end(), [](const std::string& name) {
    return toLowerAscii(pathExtension(name)) == "app";
  });
  if (app == names->end()) return std::nullopt;
  return joinPath(joinPath(folder, *app), "Info.plist");
}

bool changeBundleIDForFile(const std::string& plistPath, const std::string& bundleIdKey,
                           const std::optional<std::string>& newBundleId, PlistFormat format,
                           ErrorText* error) {
  if (!newBundleId) return fail(error, "neither the app nor an option gives an identifier");
  auto plist = readPlistDictionary(plistPath, error);
  if (!plist) return false;
  if (const PlistValue* old = plist->find(bundleIdKey)) {
    plist->set("WEX" + bundleIdKey, PlistValue(*old));
  }
  plist->set(bundleIdKey, *newBundleId);
  return writePlist(plistPath, *plist, format, error);
}

bool takeBundleIdentifiers(Run& run, ErrorText* /*error*/) {
  if (!run.bundle) return true;
  const PlistDictionary info = run.bundle->infoPlist();
  const std::string* identifier = stringForKey(info, "CFBundleIdentifier");
  run.originalBundleID = identifier ? std::optional(*identifier) : std::nullopt;
  if (isEmpty(run.replacementBundleID)) run.replacementBundleID = run.originalBundleID;
  const std::string* former = stringForKey(info, "WEXCFBundleIdentifier");
  const bool wasChanged = former && run.replacementBundleID == run.originalBundleID;
  run.formerBundleID = wasChanged ? std::optional(*former) : run.originalBundleID;
  return true;
}

bool changeBundleIdentifier(Run& run, ErrorText* /*error*/) {
  if (run.isRenewal) return true;
  run.progressor.SetProgress("Replacing bundle identifier...");
  run.log().logBasic("Replacing bundle identifier with " + shown(run.replacementBundleID));
  ErrorText reason;
  // An app that is used where it stands keeps its identifier, which matters when another was asked.
  const bool isKept = run.payloadDir.empty() && run.replacementBundleID == run.originalBundleID;
  if (!doAppBundleIDChange(run.replacementBundleID, run.payloadDir, &reason) && !isKept) {
    run.log().logWarning("The bundle identifier was not replaced in " + reason.text());
  }
  return true;
}

}  // namespace tovrek::converter
