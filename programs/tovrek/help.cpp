#include "programs/tovrek/help.h"

// Concatenates with the literals around it, as a constant does not.
#define EXCLUDED_DEVICES                                                                        \
  " -excludedDevices DEVICES   ==>  (Optional)A list of device type the App is not allowed to " \
  "run \n"

namespace tovrek {

std::string wrapHelp() {
  return "--------------------------------------------------------- \n"
         "Wrap Command \n"
         "Tovrek Wrap -in INPUTFILE -out OUTPUTFILE -Cert CERTIFICATE -Profile PROFILE -appDesc "
         "DESCRIPTION\n\n"
         " -Cert CERTIFICATE           ==>  (Required)Name of the certificate to sign the app "
         "with\n"
         " -Profile PROFILE            ==>  (Required) Name of the provisioning profile to sign "
         "the "
         "app with\n"
         " -in INPUTFILE               ==>  (Required) Name of the input app file\n"
         " -out OUTPUTFILE             ==>  (Required) Name of the output wex file\n"
         " -outBundle OUTPUTBUNDLEFILE ==>  (Optional) Name of the output bundle (ipa) file\n"
         " -appName NAME               ==>  (Optional) Friendly name of the app \n"
         " -bundleID BUNDLEID          ==>  (Optional) Bundle ID to be used for the wrapped app \n"
         " -upgrade                    ==>  (Optional) Preserve in-place upgrade capabilty (not "
         "recommended for new apps)\n"
         " -appDesc DESCRIPTION        ==>  (Optional) Description of the package \n"
         " -minPlatform VERSION        ==>  (Optional) Minimum supported platform version \n"
         " -maxPlatform VERSION        ==>  (Optional) Maximum supported platform version \n"
         " -excludedDevices DEVICES    ==>  (Optional) List of device types the app is not allowed "
         "to "
         "install on \n"
         " -logFile LOGFILE            ==>  (Optional) Name of the log file \n"
         " -logWriteLevel 0-4          ==>  (Optional) Log level for file output \n"
         " -logDisplayLevel 0-4        ==>  (Optional) Log level for standard output \n"
         " -storeURL URL               ==>  (Optional; SDK) For example, "
         "http://adhoc.example.com/store/sample.ipa \n"
         " -policyXML POLICYFILE       ==>  (Optional) Defaults to using the internal policy "
         "definition\n"
         " -noStripExtensions          ==>  (Optional) Retain iOS extensions in the app\n"
         " -adalClientID ADALCLIENTID  ==>  (Optional) Store or overwrite specified Intune ADAL "
         "ClientId setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -adalNSGResource RESOURCE   ==>  (Optional) Store or overwrite specified Intune ADAL "
         "Gatewell Gateway Resource setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -useNetworkOnlyLib          ==>  (Optional) Uses the WEX Network Only library "
         "implementation, which can only be configured and managed by Microsoft Intune\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Tovrek Wrap -Cert \"iPhone Distribution: Example Corporation\" -Profile "
         "\"distribution.mobileprovision\" -in \"input.ipa\" -out \"output.wex\" -appdesc \"Test "
         "App "
         "Version 1.0\" -minPlatform \"7.0\" -maxPlatform \"9.0\" \n "
         "\n---------------EXAMPLE-------------------- \n"
         "--------------------------------------------------------- \n\n";
}

std::string signHelp() {
  return "--------------------------------------------------------- \n"
         "Sign Command \n"
         "Tovrek Sign -in INPUTFILE -out OUTPUTFILE -Cert CERTIFICATE -Profile PROFILE \n\n"
         " -Cert CERTIFICATE          ==>  (Required) Name of the certificate to sign the app "
         "with\n"
         " -Profile PROFILE           ==>  (Required) Name of the provisioning profile to sign the "
         "app with\n"
         " -in INPUTFILE              ==>  (Required) Name of the input app file, ipa/wex file\n"
         " -out OUTPUTFILE            ==>  (Optional) Name of the output app, ipa(if ipa is "
         "input)/wex file\n"
         " -upgrade                   ==>  (Optional) Preserve in-place upgrade capabilty (not "
         "recommended for new apps)\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Sign -Cert \"iPhone Distribution: Example Corporation\" -Profile "
         "\"distributionprovisioanl.mobileprovision\" -in \"/Users/admin/Archive/sample.ipa\"\n"
         "\n---------------EXAMPLE-------------------- \n"
         "--------------------------------------------------------- \n\n";
}

std::string setInfoHelp() {
  return "--------------------------------------------------------- \n"
         "SetInfo Command \n"
         "Tovrek SetInfo -in INPUTFILE -out OUTPUTFILE -appDesc DESCRIPTION  \n\n"
         " -in INPUTFILE              ==>  (Required)Name of the input app file\n"
         " -out OUTPUTFILE            ==>  (Required)Name of the output wex file\n"
         " -appDesc DESCRIPTION       ==>  (Optional)Description of the package \n"
         " -minPlatform  VERSION      ==>  (Optional)Minimum supported platform version \n"
         " -maxPlatform  VERSION      ==>  (Optional)Maximum supported platform version "
         "\n" EXCLUDED_DEVICES
         " -storeURL url              ==>  (Optional)http://adhoc.example.com/store/sample.ipa\n"
         " -embedBundle bundlePath    ==>  (Optional)/Users/admin/Documents/sample.ipa\n\n"
         " Note: -storeURL and -embedBundle options should not be used at the same time. \n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "SetInfo -in \"input.wex -out \"output.wex\"  -appDesc \"Application description\" "
         "-minPlatform \"7.1\" \n"
         "SetInfo -in \"input.wex -out \"output.wex\" -embedBundle "
         "\"/Users/admin/Documents/sample.ipa\" \n"
         "Note: This command only works on .wex files \n  "
         "\n---------------EXAMPLE-------------------- \n";
}

std::string sdkPrepHelp() {
  return "--------------------------------------------------------- \n"
         "SdkPrep Command \n"
         "Tovrek SdkPrep -in INPUTFILE -appDesc DESCRIPTION  \n\n"
         " -in INPUTFILE              ==>  (Required)Name of the input app file\n"
         " -out OUTPUTFILE            ==>  (Required)Name of the output wex file\n"
         " -packageId GUID            ==>  (Required)Package identifier GUID\n"
         " -appType TYPE              ==>  (Required)App type (General, Premium, Enterprise)\n"
         " -storeURL url              ==>  (Required)http://adhoc.example.com/store/sample.ipa\n"
         " -entitlements PATH         ==>  (Required)Path to entitlements file\n"
         " -appIdPrefix APP_ID_PREFIX ==>  (Optional)Application Identifier Prefix (often the same "
         "as "
         "the Team ID)\n"
         " -appDesc DESCRIPTION       ==>  (Optional)Description of the package \n"
         " -minPlatform VERSION       ==>  (Optional)Minimum supported platform version \n"
         " -maxPlatform VERSION       ==>  (Optional)Maximum supported platform version "
         "\n" EXCLUDED_DEVICES
         " -adalClientID  ADALCLIENTID ==>  (Optional) store or overwrite specified Intune ADAL "
         "ClientId setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -adalNSGResource  ADALRESOURCE ==>  (Optional) store or overwrite specified  Intune "
         "ADAL "
         "Gatewell Gateway Resource setting in info.plist (supports multi tenant Intune ClientId)\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Tovrek SdkPrep -in \"input.app -out \"output.wex\" -appDesc \"Application description\" "
         "-minPlatform \"5.1\" \n"
         "Note: This command only works on .app files and is typically issued within Xcode post "
         "build "
         "step\n  "
         "\n---------------EXAMPLE-------------------- \n";
}

}  // namespace tovrek
