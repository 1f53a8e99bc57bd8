// One conversion, from an unpacked app to a signed app and its package.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "log/TKProgressor.h"
#include "params/AppConverterParam.h"
#include "settings/Settings.h"

namespace tovrek {

class AppBundle;
class TemporaryDirectory;
class UnzippedCma;
class UnzippedIpa;

// What an app bundle holds of our own components.
struct BundleInspection {
  bool hasWEXSDKFramework = false;
  bool hasOpenSSLFIPSModule = false;
  bool hasOrvaneDylib = false;
  bool hasMAMSDKFrameworks = false;
  bool hasDualModeFrameworks = false;
  bool hasDefaultPoliciesXML = false;
  std::string debugString;  // the report, as also written to the console
};

// Names of SDK frameworks that an executable links, in a fixed order.
using FrameworkNames = std::vector<std::string>;

// Runs once per object. Operations answer whether they succeeded and leave the reason in the
// error slot; some leave a warning there after a success, so judge by the result alone. Nothing
// is undone after a failure: everything written so far lies in the scratch folder, which its
// owner removes, or at the output paths.
//
// Console lines go to the system log; log lines to the "ToolkitLib" logger.
class AppConverter {
 public:
  // `param` and `progressor` must outlive the converter; the pipeline writes its findings back
  // into `param`. `contentPath` is the folder of bundles and policies to insert, only read from.
  // `settings` as the program has read them at its start; by default the built-in rules.
  AppConverter(AppConverterParam& param, TKProgressor& progressor, std::string contentPath,
               Settings settings = {});
  ~AppConverter();
  AppConverter(const AppConverter&) = delete;
  AppConverter& operator=(const AppConverter&) = delete;

  // --- Before a conversion ---

  // Points the loggers of all modules at the record's log file and levels.
  static void initializeLogging(const AppConverterParam& param);
  // Unpacks the input into the slot's folder; makes one when the slot is empty. Null with the
  // reason on failure. The slot reads "Invalid input" after a success.
  static std::shared_ptr<UnzippedIpa> unzipIpa(const std::optional<std::string>& inputPath,
                                               std::shared_ptr<TemporaryDirectory>* tempDir,
                                               ErrorText* error);
  // Unpacks the record's input, stores the unpacked app and its folder in the record, and
  // refuses apps that were built with our SDK. A null `tempDir` has a folder made.
  static bool unzipIpaAndProcessConverterParameters(AppConverterParam& param,
                                                    std::shared_ptr<TemporaryDirectory> tempDir,
                                                    ErrorText* error);

  // --- The actions ---

  // Wraps, re-signs or prepares the input as the record says. True: the package, or the output
  // .ipa, was written.
  bool CreatePackage(ErrorText* error);
  // Signs the app inside a .wex package anew.
  bool CreatePackageFromWex(ErrorText* error);
  // Places the management files into an app that was built with our SDK, and packages it.
  bool EmbedResourcesIntoApp(ErrorText* error);
  // Unpacks a package and changes its manifest; what is to be packed again lies in `directory`.
  bool extractAndUpdateWexPackageInTempDir(TemporaryDirectory& directory, ErrorText* error);
  // Changes the manifest as the record says. A failure is only logged.
  bool updateWEXpackage(const UnzippedCma& package);
  // Puts an .ipa into the unpacked package, in place of those in it.
  static bool doEmbedBundle(const std::optional<std::string>& bundlePath,
                            const UnzippedCma& package);

  // --- Eligibility (AppConverterEligibility.cpp) ---

  // Reports what the bundle holds. The report shows two of the flags as they were on entry.
  static void checkIfAppBundle(const AppBundle& bundle, BundleInspection* inspection);
  // True when the executable already loads our dylib, with the refusal in the slot.
  static bool verifyIfApplicationIsAlreadyWrapped(const AppBundle& bundle, ErrorText* error);
  // False when the executable carries the SDK's launch hook.
  static bool verifyIfAppBundleIsAlreadyWrapped(const AppBundle& bundle, ErrorText* error);
  // False when no slice of the executable is unencrypted.
  static bool verifyIfApplicationIsAppStoreApp(const AppBundle& bundle, ErrorText* error);
  static bool verifyIfApplicationIsLinkedWithStaticWEXSDK(const AppBundle& bundle,
                                                          ErrorText* error);
  // `found` (may be null) receives each SDK framework that the executable names.
  static bool verifyIfApplicationIsLinkedWithDylibWEXSDK(const AppBundle& bundle,
                                                         FrameworkNames* found, ErrorText* error);
  static bool verifyIfApplicationIsLinkedWithMDKSDK(const AppBundle& bundle, FrameworkNames* found,
                                                    ErrorText* error);
  // False, with a warning in the slot, for apps that ship ".dll" files.
  bool verifyIfItNotANativeiOSApp(const std::string& appPath, ErrorText* error);
  bool doesApplicationSupportAdobeAir(const std::string& appPath, ErrorText* error);
  // True, with a warning, when the keychain lists the name at least twice.
  static bool checkForDuplicateCertificates(const std::string& certificate, ErrorText* error);
  static bool isCmdLineToolInstalled();
  // The binary exists and carries our distribution signature.
  bool checkOrvaneDylib(const std::string& path, ErrorText* error);
  bool checkOrvaneLoggerDylib(const std::string& path, ErrorText* error);

  // --- Entitlements and bundle identifier (AppConverterEntitlements.cpp) ---

  // Writes the entitlements for the new signature below `targetDir` and stores their path.
  bool generateNewEntitlement(std::string* entitlementPath,
                              const std::optional<PlistDictionary>& profileData,
                              const std::string& targetDir, const std::string& appPath,
                              ErrorText* error);
  // The same from a profile saved as a property list.
  bool GenerateEntitlement(const std::string& targetPath, const std::string& profilePath,
                           const std::string& appPath, ErrorText* error);
  // Fits one list of identifiers to the new application identifier.
  static void MergeAppIDGroupsWithOldEntitlement(
      const std::optional<PlistDictionary>& oldEntitlements, PlistDictionary* newEntitlements,
      const std::string& key, const std::optional<std::string>& oldAppId,
      const std::optional<std::string>& oldAppIdPrefix, const std::string& newAppId);
  static std::string generatePlistXMLStringFromDictionary(const PlistDictionary& dictionary);
  // Gives the app below the Payload folder a new identifier; the old one is kept under another
  // key. False when there is no Info.plist or it cannot be written.
  static bool doAppBundleIDChange(const std::optional<std::string>& bundleId,
                                  const std::string& payloadDir);
  static std::optional<std::string> infoPlistPathFromAppPath(const std::string& folder);
  static bool changeBundleIDForFile(const std::string& plistPath, const std::string& bundleIdKey,
                                    const std::optional<std::string>& newBundleId,
                                    PlistFormat format);
  // Whether the entitlements file grants the group through which our library shares data.
  static bool checkWexKeychainEntitlementInFile(const std::string& path, ErrorText* error);

  // --- Code signing (AppConverterSigning.cpp) ---

  // Removes the old signature and sees to resource rules. The entitlements path is not used.
  bool verifyCodeSigningPrerequisites(const std::string& appPath,
                                      const std::string& entitlementPath, ErrorText* error);
  bool CodeSignOrvaneDylib(const std::string& appPath, ErrorText* error);
  // Whether the signature of the binary names a team.
  static bool verifyCodeSignatureForiOS8(const std::string& path);
  // Signs all in the bundle's "Frameworks", inner code first; stops at the first failure.
  bool CodeSignFrameworks(const std::string& bundlePath, ErrorText* error);
  // Rebuilds and signs each app extension. Always true: a broken extension stops no run.
  bool CodeSignExtensions(const std::string& appPath, ErrorText* error);
  // Signs one bundle; without an entitlements file the existing entitlements are kept.
  bool CodeSign(const std::string& bundlePath, const std::optional<std::string>& entitlementPath,
                ErrorText* error);
  static bool VerifyOrvaneDylib(const std::string& path, ErrorText* error);
  // Lets the fingerprint tool beside the program stamp the app's executable.
  bool EmbedOpenSSLFipsFingerprint(const std::string& appPath, ErrorText* error);

  // --- Copying (AppConverterCopying.cpp) ---

  bool copyOrvaneBundle(const std::string& from, const std::string& to, ErrorText* error);
  bool copyOrvaneLoggerFramework(const std::string& from, const std::string& to, ErrorText* error);
  bool createAppBundleFrameworksSubdirectory(const std::string& path, ErrorText* error);
  bool replaceProvisioningProfileAtDir(const std::string& appPath, ErrorText* error);
  // Inserts our load commands into the executable of the bundle. Binary type 2: application,
  // 1: app extension. Library type 1: the network-only variant.
  bool MachORebuild(const std::string& bundlePath, int binaryType, int libraryType,
                    ErrorText* error);
  // Checks the order of the libraries that the executable loads.
  bool machOCheckDylibLoadOrder(const std::string& bundlePath, int libraryType, ErrorText* error);
  // `text` for use between double quote characters of a shell command line.
  static std::string escapeExecutableString(std::string_view text);

  // --- Policies (AppConverterPolicy.cpp) ---

  bool copyPolicyXMLToDir(const std::string& packageDir, const std::string& appPath,
                          const std::vector<std::string>& policyLanguages, ErrorText* error,
                          const AppConverterParam& param);
  bool constructDefaultWexPolicesXMLFile(const std::string& source, const std::string& target,
                                         ErrorText* error);

  // --- Archives (AppConverterZipping.cpp) ---

  // Zips the Payload of `sourceDir` and copies the archive to `targetDir`. A failing zip is no
  // failure here; the missing file shows in a later step.
  bool ZipToIpa(const std::string& ipaName, const std::string& sourceDir,
                const std::string& targetDir, ErrorText* error);
  // The same for an unpacked package, with links followed instead of stored.
  bool ZipToIpaFromWex(const std::string& sourceDir, const UnzippedCma& package,
                       const std::string& packageDir, ErrorText* error);
  // Zips the package folder and copies the archive to the record's output file.
  bool ZiptoPackage(const std::string& packageDir, ErrorText* error);

 private:
  struct WrapRun;

  // --- Steps of CreatePackage (AppConverterPipeline.cpp), in their order ---
  bool openInput(WrapRun* run, ErrorText* error);
  bool checkEligibility(WrapRun* run, ErrorText* error);
  void takeBundleIdentifiers(const WrapRun& run);
  bool decodeProfile(WrapRun* run, ErrorText* error);
  bool makeEntitlements(WrapRun* run, ErrorText* error);
  void stripOrReportExtensions(const WrapRun& run, ErrorText* error);
  void checkCertificate(const WrapRun& run, ErrorText* error);
  bool insertManagementFiles(const WrapRun& run, ErrorText* error);
  bool rebuildExecutable(const WrapRun& run, ErrorText* error);
  void changeBundleIdentifier(const WrapRun& run);
  bool placeResources(WrapRun* run, ErrorText* error);
  void nameOutput(WrapRun* run);
  bool buildManifest(WrapRun* run, ErrorText* error);
  bool signAll(const WrapRun& run, ErrorText* error);
  bool writeIpa(const WrapRun& run, ErrorText* error);
  bool copyOutputBundle(const WrapRun& run, ErrorText* error);
  bool writePackage(WrapRun& run, ErrorText* error);
  bool deliverResigned(const WrapRun& run, ErrorText* error);

  // --- Their parts ---
  static bool refuseLinksOutside(const std::string& folder, ErrorText* error);
  static bool emptyPackageFolder(const TemporaryDirectory& directory, ErrorText* error);
  bool chooseSourceBundle(std::string* source, ErrorText* error);
  bool copyNib(const std::string& sourceBundle, const std::string& appPath, ErrorText* error);
  bool checkLogger(ErrorText* error);
  bool makeFrameworksFolder(const std::string& appPath, ErrorText* error);
  bool copyLogger(const std::string& appPath, ErrorText* error);
  std::vector<std::string> findPolicyLanguages() const;
  std::string manifestAppMode() const;
  bool mayBeWrappedAlready(WrapRun* run, ErrorText* error);
  bool signInsertedParts(const WrapRun& run, ErrorText* error);
  // Logs the reason, and how to get the developer tools when they are missing; false.
  static bool failSigning(const char* reason);
  void completeManifest(WrapRun& run, const std::string& ipaPath);
  bool removeOldOutput(ErrorText* error);

  // --- What Sign signs besides the app, as the settings say (AppConverterNested.cpp) ---
  bool keepsExtensions() const;
  // Signs the app, and first what it holds if a setting says so.
  bool signAgain(const WrapRun& run, ErrorText* error);
  bool signNestedBundle(const WrapRun& run, const std::string& path, ErrorText* error);
  // As CodeSign, with requirements made for the new certificate in place of the old ones.
  bool signAsNew(const std::string& bundlePath, const std::optional<std::string>& entitlementPath,
                 ErrorText* error);
  // Puts the new profile and entitlements to match into a nested bundle, if the profile is for it.
  bool fitNestedBundle(const WrapRun& run, const std::string& path,
                       std::optional<std::string>* entitlementPath, ErrorText* error);

  // --- The shorter flows (AppConverterPackageFlows.cpp) ---
  bool openPackage(WrapRun* run, std::shared_ptr<UnzippedCma>* package, ErrorText* error);
  bool stampSdkApp(WrapRun& run, ErrorText* error);
  void moveLanguageFiles(const std::string& from, const std::string& to);
  void renewManifest(const WrapRun& run, const std::string& ipaName);
  bool signDylib(const WrapRun& run, ErrorText* error);
  bool updatePackage(ErrorText* error);
  bool checkSdkApp(WrapRun& run, ErrorText* error);
  bool embedManagementFiles(const WrapRun& run, ErrorText* error);

  // Whether the file that the output would replace is the one the user gave.
  bool isInput(const std::string& output) const;
  // Replaces it once the new file is whole, so that a full disk costs the user nothing.
  bool replaceInput(const std::string& from, const std::string& output, ErrorText* error);

  // An item of the content folder.
  std::string contentFile(std::string_view name) const;

  AppConverterParam& converterParam_;
  TKProgressor& progressor_;
  std::string contentPath_;
  const Settings settings_;
  // As the record was at construction.
  bool isSDK_;
  bool isUpdate_;
  bool isInputApp_;  // the input is an unpacked .app
};

}  // namespace tovrek
