// The steps that more than one flow takes, or that stand apart from their flow, by subject. Each is
// defined with its subject, in the file of that name.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// --- Unpacking, and what may go on. ---

// An .ipa or .app, unless it was unpacked before.
bool unpackApp(Run& run, ErrorText* error);
// An app that its developer has unpacked, used where it stands.
bool openAppFolder(Run& run, ErrorText* error);
// A package and the .ipa in it.
bool unpackPackage(Run& run, ErrorText* error);
// Judges the links of app or package once more: what is about to be signed and packed has changed
// since it was taken in, and with it what links lead to.
bool refuseBadLinks(Run& run, ErrorText* error);
// What an archive unpacked to the package folder is not to get into the package.
bool emptyPackageFolder(Run& run, ErrorText* error);

// Apps that were built with our SDK.
bool refuseSdkApp(Run& run, ErrorText* error);
// Apps that load our dylib already.
bool refuseWrappedApp(Run& run, ErrorText* error);
// The same where the setting "resignWrapped" may let them pass, as renewals.
bool refuseOrRenewWrappedApp(Run& run, ErrorText* error);
// Adobe AIR and encrypted apps. Others that seem to be no native apps are only warned of.
bool refuseUnsupportedApp(Run& run, ErrorText* error);
// Warns of a certificate that may not serve.
bool checkCertificate(Run& run, ErrorText* error);

// What every app goes through first: unpackApp, emptyPackageFolder, inspectApp.
bool openApp(Run& run, ErrorText* error);

// --- Identifier, entitlements and profile. ---

// Notes the app's identifier, which also is the new one when none was asked for.
bool takeBundleIdentifiers(Run& run, ErrorText* error);
// Not in a renewal: the identifier stays, and so must the record of the one that the app had
// before it was wrapped.
bool changeBundleIdentifier(Run& run, ErrorText* error);

// Decodes the profile. One that cannot be decoded fails with the entitlements.
bool readProfile(Run& run, ErrorText* error);
// One that could not be decoded has no date, and passes.
bool refuseExpiredProfile(Run& run, ErrorText* error);
bool makeEntitlements(Run& run, ErrorText* error);
// What the new signature is to say: takeBundleIdentifiers, readProfile, refuseExpiredProfile,
// readProfilesFolder, makeEntitlements.
bool planSignature(Run& run, ErrorText* error);
// After these, for a renewal. The groups that wrapping adds are there from the last time;
// without this every renewal would make the list longer.
bool dropRepeatedGroups(Run& run, ErrorText* error);
// The entitlements that the developer is going to sign with, if given, hold our group.
bool requireManagementGroup(Run& run, ErrorText* error);

// --- What goes into the app. ---

// Wrap strips them, or warns of them where the user wants to have them.
bool stripOrReportExtensions(Run& run, ErrorText* error);
// Sign strips them, or keeps them where a setting says so.
bool stripOrKeepExtensions(Run& run, ErrorText* error);

// The management library; for an app built with our SDK only what goes with it.
bool insertLibrary(Run& run, ErrorText* error);
bool insertSdkResources(Run& run, ErrorText* error);
bool insertLogger(Run& run, ErrorText* error);
// Both for a developer's app, unless its mode needs none.
bool embedManagementFiles(Run& run, ErrorText* error);
bool warnOfOldHost(Run& run, ErrorText* error);
bool announceRebuild(Run& run, ErrorText* error);
bool rebuildExecutable(Run& run, ErrorText* error);
// That a developer's app loads the SDK's libraries in the order they need.
bool checkLoadOrder(Run& run, ErrorText* error);
bool placeProfile(Run& run, ErrorText* error);

// --- Policies and manifest. ---

// The policies go into app and package, the languages into the package only.
bool placePolicies(Run& run, ErrorText* error);

bool buildManifest(Run& run, ErrorText* error);
// Icons are not worth a failed run.
bool copyIcons(Run& run, ErrorText* error);
// Fills in the size of the .ipa, and what the user wants told in the manifest.
bool completeManifest(Run& run, ErrorText* error);
// The same where the .ipa is not in the package, but beside it or still to be made by others.
bool completeManifestOfSdkApp(Run& run, ErrorText* error);
bool completeManifestOfAppFolder(Run& run, ErrorText* error);

// --- Signatures. ---

bool dropOldSignature(Run& run, ErrorText* error);
// The inserted library.
bool signLibrary(Run& run, ErrorText* error);
bool signFrameworks(Run& run, ErrorText* error);
// Those that were not stripped.
bool signExtensions(Run& run, ErrorText* error);
// Where the app holds the SDK's crypto module.
bool stampFingerprint(Run& run, ErrorText* error);
bool signApp(Run& run, ErrorText* error);

// Signs the app, and first what it holds if a setting says so.
bool signAgain(Run& run, ErrorText* error);

// --- Archives, and where they go. ---

// Chooses where the .ipa is to stand: in the package, by the name of the input. That of an SDK app
// which is published instead stands beside the package.
bool nameIpa(Run& run, ErrorText* error);
bool nameSdkIpa(Run& run, ErrorText* error);
bool writeIpa(Run& run, ErrorText* error);
// An app that was given unpacked is packed by the developer tools.
bool writeSdkIpa(Run& run, ErrorText* error);
bool writeIpaOfPackage(Run& run, ErrorText* error);
// An app that was changed where it stands is on the disk before its package is.
bool flushApp(Run& run, ErrorText* error);
// Unless only the .ipa was asked for. Fails where the package lacks its manifest.
bool writePackage(Run& run, ErrorText* error);

// Copies the .ipa to where the user asked for it besides the package, if so.
bool copyOutputBundle(Run& run, ErrorText* error);
// Copies the .ipa to the output file.
bool deliverIpa(Run& run, ErrorText* error);

}  // namespace tovrek::converter
