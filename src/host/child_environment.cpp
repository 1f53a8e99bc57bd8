#include "host/child_environment.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/HostRoot.h"
#include "host/paths.h"
#include "host/progress_report.h"

extern char** environ;

namespace tovrek {
namespace {

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, word) != words.end();
}

// The tool that xcrun is told to run: its first word that is neither an option nor the value of
// one.
std::string_view toolOfLauncher(const std::vector<std::string>& words) {
  for (size_t i = 1; i < words.size(); ++i) {
    if (isOneOf(words[i], {"-sdk", "--sdk", "-toolchain", "--toolchain"})) {
      ++i;
    } else if (!words[i].starts_with("-")) {
      return words[i];
    }
  }
  return {};
}

// Only the program counts. Arguments hold paths, and whoever made an app chose names in them.
bool mayNeedSecrets(const Command& command) {
  const std::string& started = command.shellTool.empty() ? command.argv.front() : command.shellTool;
  const std::string program = lastPathComponent(started);
  if (program == "xcrun" && command.shellTool.empty()) {
    return isOneOf(toolOfLauncher(command.argv), {"PackageApplication", "codesign", "security"});
  }
  return isOneOf(program, {"codesign", "security"});
}

bool isSecret(std::string_view variable) {
  return variable.starts_with("TOVREK_KEYCHAIN_PASSWORD=") ||
         variable.starts_with("TOVREK_PKCS11_PIN=");
}

bool isReplaced(std::string_view variable, const Command& command) {
  // zip and unzip would take further options from these.
  constexpr std::array<std::string_view, 9> kReplaced = {
      "PATH=",  "LC_ALL=",   "LANGUAGE=", "ZIPOPT=",          "ZIP=",
      "UNZIP=", "UNZIPOPT=", "ZIPINFO=",  "TOVREK_STAND_INS="};
  // Meant for this process alone: its children get their own.
  const std::string progress = std::string(kProgressVariable) + "=";
  return variable.starts_with(progress) ||
         std::ranges::any_of(kReplaced, [&](auto name) { return variable.starts_with(name); }) ||
         std::ranges::any_of(command.environment, [&](const auto& own) {
           return variable.starts_with(own.first + "=");
         });
}

}  // namespace

std::vector<std::string> childEnvironment(const Command& command) {
  std::vector<std::string> result;
  const bool needsSecrets = mayNeedSecrets(command);
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (isReplaced(*entry, command) || (!needsSecrets && isSecret(*entry))) continue;
    result.emplace_back(*entry);
  }
  result.push_back("LC_ALL=C.UTF-8");
  result.push_back("PATH=" + HostRoot::searchPath());
  for (const auto& [name, value] : command.environment) result.push_back(name + "=" + value);
  return result;
}

}  // namespace tovrek
