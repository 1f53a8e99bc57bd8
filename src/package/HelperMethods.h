// Operations without state that the manifest builder, the Info.plist editor and the conversion
// pipeline share. All report to the manifest library's logger and answer null or false after
// that; external tools are judged by their exit status.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/Digest.h"
#include "formats/ImageSurface.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek {

class AppBundle;
class ManifestData;
class XmlDocument;

// An icon's size in pixels, as the manifest has it.
struct IconResolution {
  std::string xRes = "0";
  std::string yRes = "0";
  bool isKnown() const { return xRes != "0" && yRes != "0"; }
};

class HelperMethods {
 public:
  // --- Signatures and profiles ---

  // The value of `key` in the signed entitlements of an app bundle or a binary; none when the
  // code is not signed, the entitlements cannot be read or the key is missing.
  static std::optional<PlistValue> ReadEmbeddedEntitlements(const std::string& path,
                                                            std::string_view key);
  // All signed entitlements, on the same terms.
  static std::optional<PlistDictionary> signedEntitlements(const std::string& path);
  // The value at a key path ("Entitlements.application-identifier") in the property list inside
  // a provisioning profile. The signature around it is not verified.
  static std::optional<PlistValue> ReadEmbeddedProfile(const std::string& path,
                                                       std::string_view keyPath);
  // Whether a keychain access group of the entitlements file holds `group`; groups carry a team
  // prefix, hence the search for a part. A file that is missing or unreadable fills the slot.
  static bool checkKeychainAccessGroup(const std::string& group,
                                       const std::string& entitlementsFile, ErrorText* error);
  // The same over the signed entitlements of a bundle.
  static bool checkKeychainAccessGroupInAppBundlePath(const std::string& group,
                                                      const std::string& appBundlePath);
  // Whether the app has Microsoft Intune inside: framework, resources, access group or symbols.
  static bool detectIntuneInAppBundle(const std::string& appBundlePath,
                                      const std::optional<std::string>& entitlementsFile);
  // The symbol names of a binary, as the tool prints them; `terminateStatus` (may be null) gets
  // the tool's exit status.
  static std::string getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus);

  // --- Icons ---

  // File names of the app's icons in the bundle's top folder, each ending in ".png", none twice.
  // None when there are no icons. Icons that exist only in other scales are created.
  static std::optional<std::vector<std::string>> readIconsDetailsFromAppBundle(
      const AppBundle& bundle);
  // Width and height of a PNG file, platform-optimised or not; "0" when unknown.
  static IconResolution LoadIconImage(const std::string& path);
  // Writes the icon's size into the package folder's manifest.xml.
  static bool ModifyIconFileRes(const std::string& packageFolder, const std::string& iconFileName,
                                const std::string& iconPath);
  // The file name that stands for a listed icon name without a file: the name with ".png", made
  // as a standard PNG from the best match of "name*.png" in the bundle's top folder.
  static std::optional<std::string> findAndCreateMatchingPatternForFile(
      const std::string& iconName, const std::string& bundlePath);

  // --- Checksums and keys ---

  // Appends the contents of all files below the folder to `data`, in walk order. The data is only
  // ever hashed, so it is kept as a running digest and not in memory.
  static void LookForRecursiveFileWith(const std::string& directory, Digest& data);
  // 32 upper-case digits.
  static std::string CalulateMD5StringFromData(std::string_view data);
  // 64 lower-case digits; `data` is a SHA-256 digest and starts anew.
  static std::string CalulateSHA2StringFromData(Digest& data);
  static std::string CalulateSHA2StringFromData(std::string_view data);
  // Writes a property list of one key.
  static bool GenerateChecksumPlistFile(const std::string& checksum, const std::string& key,
                                        const std::string& path);
  static std::string GenerateUUID();
  // A new package key, 64 hexadecimal digits that differ on every run; none without a MAC address.
  static std::optional<std::string> GeneratePrivateKey(const std::string& bundlePath);
  // "00:11:22:33:44:55" of "en0", or the failure in the slot.
  static std::optional<std::string> getMacAddress(ErrorText* error);

  // --- Text ---

  // Exclusive or with the repeated key; its own inverse. None when the result is not UTF-8.
  static std::optional<std::string> obfuscate(std::string_view text, std::string_view key);
  // Percent codes for seventeen characters; the percent sign itself stays as it is.
  static std::string convertToEscapeString(std::string_view text);
  static std::string convertFromUnescapedString(std::string_view text);
  // Any value as text; empty for none.
  static std::string returnString(const PlistValue* value);

  // --- Drawing ---

  // A transparent surface in pixels; none when it cannot be made.
  static std::optional<ImageSurface> createBitmapContextOfSize(ImageSize size);
  // The background with the overlay drawn on its centre; none when drawing fails.
  static std::optional<ImageSurface> DrawMe(const ImageSurface& overlay,
                                            const ImageSurface& background);
  // The same for two PNG files.
  static std::optional<ImageSurface> overLayImage(const std::string& overlayPath,
                                                  const std::string& backgroundPath);

  // --- Info.plist and settings file ---

  // Appends a URL type for `url`, in place of those that hold a scheme with `group` in it. An
  // empty group replaces nothing.
  static bool AddURLScheme(const std::string& url, const std::string& group,
                           PlistDictionary& infoPlist);
  // Adds schemes to those the app may query. False for an empty dictionary.
  static bool addURLSchemes(const std::vector<std::string>& schemes, PlistDictionary& infoPlist);
  // The schemes of the management companion apps.
  static std::vector<std::string> defaultURLSchemesToWhitelist();
  // The device families that an app excludes, from those it supports; "" for none.
  static std::string getExcludedDevicesStringFromDevicesArray(const PlistValue* devices);
  // Writes the settings file atomically; false for an empty path.
  static bool GenerateOrvanePlistFile(const PlistDictionary& dictionary, const std::string& path);

  // --- Edits of an existing manifest. Each loads the file, edits and writes it back whole. ---

  static bool UpdateManifestFileAsPerUserSelection(const std::string& manifestPath,
                                                   const ManifestData& data);
  static bool UpdateAppStoreURL(const std::string& manifestPath, const std::string& value);
  static bool removeAppStoreURL(const std::string& manifestPath);
  static bool updateManifestFile(const std::string& manifestPath,
                                 const std::string& bundleFileName);
  static bool updateAppWEXProperty(const std::string& manifestPath, const std::string& xpath,
                                   const std::optional<std::string>& value);
  // Fills in the package size: that of the ipa file with a dummy size given, else 2000.
  static bool ModifyPackageSize(const std::string& manifestPath, const std::string& ipaPath,
                                const std::optional<std::string>& dummySize);
  // Sets the one node at an XPath; false unless exactly one matches. No value empties it.
  static bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath,
                                                const std::optional<std::string>& value);
  // Removes the one node at an XPath.
  static bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath);
  // Appends an element with a CRKW attribute at the end of the one element at `writePath`.
  static bool ManifestUpdateAddElementInternalPurposeOnly(XmlDocument& document,
                                                          const std::string& writePath,
                                                          const std::optional<std::string>& value,
                                                          const std::string& name,
                                                          const std::string& attribute);
};

}  // namespace tovrek
