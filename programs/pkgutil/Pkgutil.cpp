#include "programs/pkgutil/Pkgutil.h"

#include <fmt/format.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/files.h"
#include "host/version.h"
#include "launch/programs.h"

namespace tovrek::pkgutil {
namespace {

constexpr std::string_view kUsage =
    "Usage: pkgutil [--volume PATH] --pkgs[=REGEXP] | --pkg-info ID | --pkg-info-plist ID\n"
    "    --pkgs            list the packages that are installed\n"
    "    --pkgs=REGEXP     list those whose whole name matches (extended expression)\n"
    "    --pkg-info ID     show when and where one was installed\n"
    "    --pkg-info-plist ID  the same as a property list\n"
    "    --volume PATH     accepted; packages are those of this host\n"
    "    -h, --help        print this text\n";

constexpr std::array<std::string_view, 2> kPackages = {"com.apple.pkg.CLTools_Executables",
                                                       "com.apple.pkg.DeveloperToolsCLI"};
constexpr const char* kAny = ".*";

// When the newest of the tools was installed; none while one is missing.
std::optional<int64_t> installTime() {
  int64_t newest = 0;
  for (const char* name : {"codesign", "otool", "nm"}) {
    const auto path = launch::findCompanion(name);
    const auto changed = path ? modificationTime(*path) : std::nullopt;
    if (!changed) return std::nullopt;
    newest = std::max(newest, *changed);
  }
  return newest;
}

int listPackages(const std::string& pattern, const Streams& streams) {
  regex_t expression{};
  if (::regcomp(&expression, fmt::format("^({})$", pattern).c_str(), REG_EXTENDED) != 0) {
    streams.error(fmt::format("'{}' is no regular expression\n", pattern));
    return 1;
  }
  int listed = 0;
  for (const std::string_view package : kPackages) {
    const bool fits = ::regexec(&expression, package.data(), 0, nullptr, 0) == 0;
    if (!fits || !installTime()) continue;
    streams.out(fmt::format("{}\n", package));
    ++listed;
  }
  ::regfree(&expression);
  // A pattern asks whether there is such a package.
  return listed > 0 || pattern == kAny ? 0 : 1;
}

constexpr std::string_view kText =
    "package-id: {0}\nversion: {2}\nvolume: /\nlocation: /\ninstall-time: {1}\n";
constexpr std::string_view kPlist =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n"
    "\t<key>pkgid</key>\n\t<string>{0}</string>\n"
    "\t<key>install-time</key>\n\t<integer>{1}</integer>\n"
    "\t<key>install-location</key>\n\t<string>/</string>\n"
    "\t<key>pkg-version</key>\n\t<string>{2}</string>\n"
    "\t<key>volume</key>\n\t<string>/</string>\n</dict>\n</plist>\n";

int showPackage(std::string_view package, bool asPlist, const Streams& streams) {
  const bool known = std::ranges::find(kPackages, package) != kPackages.end();
  const auto installed = known ? installTime() : std::nullopt;
  if (!installed) {
    streams.error(fmt::format("No receipt for '{}' found at '/'.\n", package));
    return 1;
  }
  streams.out(
      fmt::format(fmt::runtime(asPlist ? kPlist : kText), package, *installed, kToolVersion));
  return 0;
}

int badUsage(const Streams& streams) {
  streams.error(kUsage);
  return 1;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  std::vector<std::string> words = arguments.words;
  if (words.size() > 2 && words[0] == "--volume") words.erase(words.begin(), words.begin() + 2);
  if (words.empty()) return badUsage(streams);
  // The value stands behind "=" or in the next word.
  const size_t equals = words[0].find('=');
  const std::string option = words[0].substr(0, equals);
  std::optional<std::string> value;
  if (equals != std::string::npos) value = words[0].substr(equals + 1);
  if (!value && words.size() == 2) value = words[1];
  if (words.size() > (equals == std::string::npos ? 2 : 1)) return badUsage(streams);

  if (option == "--pkgs" && (words.size() == 1)) return listPackages(value.value_or(kAny), streams);
  if (option == "--pkg-info" && value) return showPackage(*value, false, streams);
  if (option == "--pkg-info-plist" && value) return showPackage(*value, true, streams);
  if ((option == "--help" || option == "-h") && !value) {
    streams.out(kUsage);
    return 0;
  }
  return badUsage(streams);
}

}  // namespace tovrek::pkgutil
