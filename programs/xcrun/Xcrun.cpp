#include "programs/xcrun/Xcrun.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "host/version.h"
#include "launch/programs.h"
#include "programs/xcrun/package_application.h"

namespace tovrek::xcrun {
namespace {

// EX_USAGE and EX_OSFILE, as Apple's program ends.
constexpr int kBadUsage = 64;
constexpr int kNoTool = 72;

constexpr std::string_view kUsage =
    "Usage: xcrun [-sdk name] [--verbose] [--run] tool [arguments]\n"
    "       xcrun [-sdk name] --find tool\n"
    "       xcrun [-sdk name] PackageApplication app [-o ipa] [--sign identity]\n"
    "             [--embed profile] [--verbose]\n";

std::optional<std::string> findTool(const std::string& name) {
  if (auto companion = launch::findCompanion(name)) return companion;
  return launch::findHostProgram(name);
}

int missing(const std::string& name, const Streams& streams) {
  streams.error(fmt::format(
      "xcrun: error: unable to find utility \"{}\", not a developer tool or in PATH\n", name));
  return kNoTool;
}

int findAndPrint(const std::string& name, const Streams& streams) {
  const auto path = findTool(name);
  if (!path) return missing(name, streams);
  streams.out(*path + "\n");
  return 0;
}

int runPackageApplication(const std::vector<std::string>& arguments, const Streams& streams) {
  ErrorText error;
  const auto request = parsePackageRequest(arguments, &error);
  if (request && packageApplication(*request, streams, &error)) return 0;
  streams.error(fmt::format("error: {}\n", error.text()));
  return 1;
}

int runTool(const std::vector<std::string>& words, const Streams& streams) {
  const std::vector<std::string> arguments(words.begin() + 1, words.end());
  if (words.front() == "PackageApplication") return runPackageApplication(arguments, streams);
  const auto path = findTool(words.front());
  return path ? launch::becomeProgram(*path, arguments, streams) : missing(words.front(), streams);
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, word) != words.end();
}

// Words of the leading options that only choose where to look; 0 for another word. There is one
// set of tools on this host, so nothing depends on them.
size_t ignoredWords(const std::vector<std::string>& words) {
  if (isOneOf(words.front(), {"-sdk", "--sdk", "-toolchain", "--toolchain"})) {
    return words.size() > 1 ? 2 : 0;
  }
  return isOneOf(words.front(), {"-v", "--verbose", "-r", "-run", "--run", "-n", "--no-cache", "-k",
                                 "--kill-cache", "-l", "--log"})
             ? 1
             : 0;
}

// Questions about an SDK, which this host has not.
bool asksForSdk(std::string_view word) {
  while (word.starts_with("-")) word.remove_prefix(1);
  return word.starts_with("show-sdk-");
}

int noSdk(std::string_view name, const Streams& streams) {
  streams.error(fmt::format("xcrun: error: SDK \"{}\" cannot be located\n", name));
  return 1;
}

int badUsage(std::string_view text, const Streams& streams) {
  streams.error(fmt::format("xcrun: error: {}\n{}", text, kUsage));
  return kBadUsage;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  std::vector<std::string> words = arguments.words;
  std::string sdk = "macosx";
  while (!words.empty()) {
    const std::string& word = words.front();
    if (!word.starts_with("-")) return runTool(words, streams);
    if (isOneOf(word, {"-h", "-help", "--help"})) {
      streams.out(kUsage);
      return 0;
    }
    if (isOneOf(word, {"-version", "--version"})) {
      streams.out(fmt::format("xcrun version {}.\n", kToolVersion));
      return 0;
    }
    if (isOneOf(word, {"-f", "-find", "--find"}) && words.size() > 1)
      return findAndPrint(words[1], streams);
    if (asksForSdk(word)) return noSdk(sdk, streams);
    const size_t ignored = ignoredWords(words);
    if (ignored == 0) return badUsage(fmt::format("invalid option '{}'", word), streams);
    if (word.ends_with("sdk")) sdk = words[1];
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(ignored));
  }
  return badUsage("no tool given", streams);
}

}  // namespace tovrek::xcrun
