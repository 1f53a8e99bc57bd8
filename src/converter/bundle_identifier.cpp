#include "converter/bundle_identifier.h"

#include <algorithm>

#include "converter/common.h"
#include "host/files.h"

namespace tovrek::converter {

bool doAppBundleIDChange(const std::optional<std::string>& bundleId,
                         const std::string& payloadDir) {
  const auto plist = infoPlistPathFromAppPath(payloadDir);
  // The entry may be another one than the app at hand, and a link.
  if (!plist || !liesInside(containingFolder(*plist), payloadDir)) return false;
  return changeBundleIDForFile(*plist, "CFBundleIdentifier", bundleId, PlistFormat::kBinary);
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
                           const std::optional<std::string>& newBundleId, PlistFormat format) {
  if (!newBundleId || !fileExists(plistPath)) return false;
  auto plist = readPlistDictionary(plistPath);
  if (!plist) return false;
  if (const PlistValue* old = plist->find(bundleIdKey)) {
    plist->set("WEX" + bundleIdKey, PlistValue(*old));
  }
  plist->set(bundleIdKey, *newBundleId);
  return writePlist(plistPath, *plist, format);
}

bool takeBundleIdentifiers(Run& run, ErrorText* /*error*/) {
  if (!run.bundle) return true;
  const PlistDictionary info = run.bundle->infoPlist();
  const std::string* identifier = stringForKey(info, "CFBundleIdentifier");
  run.originalBundleID = identifier ? std::optional(*identifier) : std::nullopt;
  if (isEmpty(run.replacementBundleID)) run.replacementBundleID = run.originalBundleID;
  return true;
}

bool changeBundleIdentifier(Run& run, ErrorText* /*error*/) {
  if (run.isRenewal) return true;
  run.progressor.SetProgress("Replacing bundle identifier...");
  run.log().logBasic("Replacing bundle identifier with " + shown(run.replacementBundleID));
  doAppBundleIDChange(run.replacementBundleID, run.payloadDir);
  return true;
}

}  // namespace tovrek::converter
