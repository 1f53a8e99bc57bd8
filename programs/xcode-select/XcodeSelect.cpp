#include "programs/xcode-select/XcodeSelect.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string_view>

#include "host/HostRoot.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/version.h"
#include "launch/programs.h"

namespace tovrek::xcode_select {
namespace {

constexpr std::string_view kUsage =
    "Usage: xcode-select [options]\n"
    "    --install         show which packages of this host are missing\n"
    "    -s, --switch DIR  accepted; this host has one set of tools\n"
    "    -r, --reset       accepted likewise\n"
    "    -p, --print-path  print the folder that holds the developer tools\n"
    "    -v, --version     print the version\n"
    "    -h, --help        print this text\n";

// The Debian packages of the programs that the toolkit and its companions run and that are not
// installed. Each has a package of its own name.
std::vector<std::string> missingPackages() {
  std::vector<std::string> missing;
  for (const char* name : {"grep", "openssl", "unzip", "zip"}) {
    if (!launch::findHostProgram(name)) missing.emplace_back(name);
  }
  return missing;
}

int install(const Streams& streams) {
  const std::vector<std::string> missing = missingPackages();
  if (missing.empty()) {
    streams.out("xcode-select: note: all programs that the developer tools need are installed\n");
    return 0;
  }
  streams.out(
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

int badUsage(std::string_view text, const Streams& streams) {
  streams.error(fmt::format("xcode-select: error: {}\n{}", text, kUsage));
  return 1;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  const std::vector<std::string>& words = arguments.words;
  if (words.empty()) return badUsage("no command option given", streams);
  const std::string& option = words.front();
  const bool takesValue = option == "-s" || option == "--switch" || option == "-switch";
  if (takesValue && words.size() < 2) {
    return badUsage(fmt::format("{} needs a folder", option), streams);
  }
  if (words.size() > (takesValue ? 2 : 1)) {
    return badUsage(fmt::format("invalid argument '{}'", words[1]), streams);
  }
  if (option == "--install") return install(streams);
  if (option == "-p" || option == "--print-path" || option == "-print-path") {
    streams.out(developerFolder() + "\n");
  } else if (option == "-v" || option == "--version") {
    streams.out(fmt::format("xcode-select version {}.\n", kToolVersion));
  } else if (option == "-h" || option == "--help") {
    streams.out(kUsage);
  } else if (takesValue || option == "-r" || option == "--reset" || option == "-reset") {
    // Scripts choose an Xcode before they build; nothing here depends on it.
    streams.error("xcode-select: note: this host has one set of tools, and it stays selected\n");
  } else {
    return badUsage(fmt::format("invalid argument '{}'", option), streams);
  }
  return 0;
}

}  // namespace tovrek::xcode_select
