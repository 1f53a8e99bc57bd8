#include "tools/host_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "host/HostRoot.h"
#include "host/files.h"
#include "host/process.h"
#include "log/SystemLog.h"
#include "tools/splitting.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

// The dotted parts as numbers, so that 10.10 is later than 10.9; missing parts count as 0.
std::vector<uint64_t> versionParts(std::string_view version) {
  std::vector<uint64_t> parts;
  for (const std::string_view text : splitAt(version, '.')) {
    uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    parts.push_back(number);
  }
  return parts;
}

bool isVersionAtLeast(std::string_view version, std::string_view wanted) {
  std::vector<uint64_t> left = versionParts(version);
  std::vector<uint64_t> right = versionParts(wanted);
  const size_t count = std::max(left.size(), right.size());
  left.resize(count);
  right.resize(count);
  return left >= right;
}

bool isHostAtLeast(std::string_view wanted) {
  constexpr char kVersionFile[] = "/System/Library/CoreServices/SystemVersion.plist";
  const auto properties = readPlistDictionary(HostRoot::resolve(kVersionFile));
  if (!properties) return false;
  const std::string* version = stringForKey(*properties, "ProductVersion");
  return version != nullptr && isVersionAtLeast(*version, wanted);
}

}  // namespace

bool verifyIfOSVerisonIsMavericksandAbove() {
  return isHostAtLeast("10.9");
}

bool verifyIfOSVerisonIsCatalinaOrAbove() {
  return isHostAtLeast("10.15");
}

bool verifyIfDependentCommandLineToolsExist() {
  if (!isDirectory(HostRoot::resolve("/usr/bin/"))) return false;
  for (const char* tool : {"/usr/bin/nm", "/usr/bin/otool", "/usr/bin/codesign"}) {
    if (!HostRoot::exists(tool)) {
      systemLog(fmt::format("Command Line tool {}: not present", tool));
      return false;
    }
  }
  return true;
}

bool executeInstallCommandLineTools(const std::string& commandLine) {
  const Outcome outcome = runQuietly(shellCommand(commandLine));
  return outcome.status == 0 || !outcome.output.empty();
}

bool verifyCommandLineToolisInstalled(const ToolsCompletion& completion) {
  bool installed = false;
  bool mayInstall = true;
  if (verifyIfOSVerisonIsCatalinaOrAbove()) {
    installed = verifyIfDependentCommandLineToolsExist();
  } else if (verifyIfOSVerisonIsMavericksandAbove()) {
    installed =
        executeInstallCommandLineTools("pkgutil --pkg-info=com.apple.pkg.CLTools_Executables");
  } else {
    installed =
        executeInstallCommandLineTools("pkgutil --pkg-info=com.apple.pkg.DeveloperToolsCLI");
    mayInstall = false;
  }
  if (completion) completion(installed, mayInstall);
  return installed;
}

bool isCmdLineToolInstalled() {
  return HostRoot::exists("/var/db/receipts/com.apple.pkg.DeveloperToolsCLI.bom") ||
         HostRoot::exists("/var/db/receipts/com.apple.pkg.CLTools_Executables.bom") ||
         verifyCommandLineToolisInstalled(nullptr);
}

bool installCommandLineTools() {
  Outcome outcome;
  ErrorText reason;
  if (runProcess(shellCommand("xcode-select --install"), &outcome, &reason)) {
    systemLog(fmt::format("outputStr {}", outcome.output), LineBreaks::kKept);
  } else {
    logNotStarted(reason);
  }
  return true;
}

}  // namespace tovrek
