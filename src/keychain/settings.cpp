#include "keychain/settings.h"

#include <fmt/format.h>

#include <sstream>

#include "host/files.h"
#include "host/paths.h"
#include "keychain/key_files.h"

namespace tovrek::keychain {

Settings readSettings(const std::string& folder) {
  Settings settings;
  std::string contents;
  if (!readFile(joinPath(folder, kSettingsName), &contents)) return settings;
  std::istringstream words(contents);
  for (std::string word; words >> word;) {
    int seconds = 0;
    if (word == "encrypted") settings.encrypted = true;
    if (word == "lock-on-sleep") settings.lockOnSleep = true;
    if (word == "timeout" && words >> seconds && seconds >= 0) settings.timeout = seconds;
  }
  return settings;
}

bool writeSettings(const std::string& folder, const Settings& settings, ErrorText* error) {
  std::string contents;
  if (settings.encrypted) contents += "encrypted\n";
  if (settings.lockOnSleep) contents += "lock-on-sleep\n";
  if (settings.timeout) contents += fmt::format("timeout {}\n", *settings.timeout);
  return writeSecret(joinPath(folder, kSettingsName), contents, error);
}

}  // namespace tovrek::keychain
