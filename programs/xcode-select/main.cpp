// Tells which of the programs that are run on this host are missing, and how to get them.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

#include "host/HostRoot.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "launch/programs.h"
#include "log/SystemLog.h"
#include "programs/xcode-select/host_packages.h"

namespace {

using namespace tovrek;

constexpr std::string_view kUsage =
    "Usage: xcode-select [options]\n"
    "    --install         show which packages of this host are missing\n"
    "    -s, --switch DIR  accepted; this host has one set of tools\n"
    "    -r, --reset       accepted likewise\n"
    "    -p, --print-path  print the folder that holds the developer tools\n"
    "    -v, --version     print the version\n"
    "    -h, --help        print this text\n";

int install() {
  const std::vector<std::string> missing = missingPackages();
  if (missing.empty()) {
    printOut("xcode-select: note: all programs that the developer tools need are installed\n");
    return 0;
  }
  printOut(
      fmt::format("xcode-select: note: missing packages: {}\nInstall them with: sudo apt "
                  "install {}\n",
                  fmt::join(missing, ", "), fmt::join(missing, " ")));
  return 1;
}

// The host root: the folder above usr/bin, where this program stands.
std::string developerFolder() {
  const std::string named = HostRoot::folder();
  if (!named.empty()) return named;
  return deletingLastPathComponent(deletingLastPathComponent(programFolder()));
}

int badUsage(std::string_view text) {
  printError(fmt::format("xcode-select: error: {}\n{}", text, kUsage));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view option = argc > 1 ? argv[1] : "";
  const bool takesValue = option == "-s" || option == "--switch" || option == "-switch";
  if (argc < 2) return badUsage("no command option given");
  if (takesValue && argc < 3) return badUsage(fmt::format("{} needs a folder", option));
  if (argc > (takesValue ? 3 : 2)) return badUsage(fmt::format("invalid argument '{}'", argv[2]));
  if (option == "--install") return install();
  if (option == "-p" || option == "--print-path" || option == "-print-path") {
    printOut(developerFolder() + "\n");
  } else if (option == "-v" || option == "--version") {
    printOut("xcode-select version 20.5.0.\n");
  } else if (option == "-h" || option == "--help") {
    printOut(kUsage);
  } else if (takesValue || option == "-r" || option == "--reset" || option == "-reset") {
    // Scripts choose an Xcode before they build; nothing here depends on it.
    printError("xcode-select: note: this host has one set of tools, and it stays selected\n");
  } else {
    return badUsage(fmt::format("invalid argument '{}'", option));
  }
  return 0;
}
