// Answers whether the developer tools are installed: they are when the companions that stand in
// for them are there.
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "companions/launch/programs.h"
#include "log/SystemLog.h"

namespace {

using namespace tovrek;

constexpr std::string_view kUsage =
    "Usage: pkgutil --pkgs | --pkg-info=PACKAGE-ID\n"
    "    --pkgs         list the packages that are installed\n"
    "    --pkg-info=ID  show when and where one was installed\n";

constexpr std::array<std::string_view, 2> kPackages = {"com.apple.pkg.CLTools_Executables",
                                                       "com.apple.pkg.DeveloperToolsCLI"};

// When the newest of the tools was installed; none while one is missing.
std::optional<time_t> installTime() {
  time_t newest = 0;
  for (const char* name : {"codesign", "otool", "nm"}) {
    const auto path = launch::findCompanion(name);
    struct stat info {};
    if (!path || ::stat(path->c_str(), &info) != 0) return std::nullopt;
    newest = std::max(newest, info.st_mtime);
  }
  return newest;
}

int listPackages() {
  if (!installTime()) return 0;
  for (const std::string_view package : kPackages) printOut(fmt::format("{}\n", package));
  return 0;
}

int showPackage(std::string_view package) {
  const bool known = std::ranges::find(kPackages, package) != kPackages.end();
  const auto installed = known ? installTime() : std::nullopt;
  if (!installed) {
    printError(fmt::format("No receipt for '{}' found at '/'.\n", package));
    return 1;
  }
  printOut(
      fmt::format("package-id: {}\nversion: 20.5.0\nvolume: /\nlocation: /\ninstall-time: {}\n",
                  package, *installed));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  constexpr std::string_view kInfo = "--pkg-info";
  if (words.size() == 1 && words[0] == "--pkgs") return listPackages();
  if (words.size() == 1 && words[0].starts_with("--pkg-info=")) {
    return showPackage(std::string_view(words[0]).substr(kInfo.size() + 1));
  }
  if (words.size() == 2 && words[0] == kInfo) return showPackage(words[1]);
  const bool help = words.size() == 1 && (words[0] == "--help" || words[0] == "-h");
  help ? printOut(kUsage) : printError(kUsage);
  return help ? 0 : 1;
}
