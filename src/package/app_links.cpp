#include "package/app_links.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/printable.h"

namespace tovrek {
namespace {

// What is read, written or signed by these names in an app and in the code nested in it.
constexpr std::array<std::string_view, 17> kNamesInCode = {"Info.plist",
                                                           "_CodeSignature",
                                                           "CodeResources",
                                                           "ResourceRules.plist",
                                                           "PkgInfo",
                                                           "embedded.mobileprovision",
                                                           "Frameworks",
                                                           "PlugIns",
                                                           "Watch",
                                                           "OrvaneDylib.bundle",
                                                           "Orvane.plist",
                                                           "policy_metadata.xml",
                                                           "default_policies.xml",
                                                           "default_wex_policies.xml",
                                                           "AppLoaderViewController.nib",
                                                           "orig-entitlements.plist",
                                                           "archived-expanded-entitlements.xcent"};
constexpr std::array<std::string_view, 3> kFoldersOfCode = {"Frameworks", "PlugIns", "Watch"};
constexpr std::array<std::string_view, 5> kCodeExtensions = {"app", "appex", "framework", "bundle",
                                                             "xctest"};

template <class Names>
bool isOneOf(const Names& names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

class Judge {
 public:
  Judge(const LinkTargets& links, const std::optional<std::string>& app)
      : links_(links), app_(app) {}

  // What is wrong with a link; null for nothing.
  const char* fault(const std::string& path, const std::string& target) const {
    if (!app_) return "packages hold no links";
    const bool inside = app_->empty() || path.starts_with(*app_ + "/");
    if (!inside) return "it lies beside the app";
    if (isExpectedName(path)) return "it stands in place of a file or folder of the app";
    if (target.starts_with('/')) return "its target is absolute";
    return targetFault(path, target);
  }

 private:
  bool isExpectedName(const std::string& path) const {
    const std::string name = lastPathComponent(path);
    const std::string parent = deletingLastPathComponent(path);
    const std::string within = lastPathComponent(parent);
    if (isCode(parent)) {
      return isOneOf(kNamesInCode, name) || name == deletingPathExtension(within);
    }
    return isOneOf(kFoldersOfCode, within) && isCode(deletingLastPathComponent(parent));
  }

  bool isCode(const std::string& folder) const {
    return folder == *app_ || isOneOf(kCodeExtensions, toLowerAscii(pathExtension(folder)));
  }

  const char* targetFault(const std::string& path, const std::string& target) const {
    constexpr const char* kOutside = "its target lies outside of the app";
    std::string at = deletingLastPathComponent(path);
    for (size_t begin = 0; begin < target.size();) {
      const size_t end = std::min(target.find('/', begin), target.size());
      const std::string name = target.substr(begin, end - begin);
      begin = end + 1;
      if (name.empty() || name == ".") continue;
      if (name != "..") {
        at = joinPath(at, name);
      } else if (at == *app_) {
        return kOutside;
      } else {
        at = deletingLastPathComponent(at);
      }
      if (links_.contains(at)) return "it leads through another link";
    }
    return nullptr;
  }

  const LinkTargets& links_;
  const std::optional<std::string>& app_;
};

bool collectLinks(const std::string& folder, LinkTargets* links, ErrorText* error) {
  bool whole = true;
  const auto take = [&](const WalkedItem& item) {
    if (item.kind != ItemKind::kLink) return whole;
    const auto target = linkTarget(joinPath(folder, item.relativePath), error);
    whole = whole && target.has_value();
    if (target) (*links)[item.relativePath] = *target;
    return whole;
  };
  return walkDirectory(folder, take, error) && whole;
}

}  // namespace

std::vector<LinkFault> faultsOf(const LinkTargets& links, const std::optional<std::string>& app) {
  const Judge judge(links, app);
  std::vector<LinkFault> faults;
  for (const auto& [path, target] : links) {
    if (const char* reason = judge.fault(path, target)) faults.push_back({path, reason});
  }
  return faults;
}

bool judgeLinks(const std::string& folder, const std::optional<std::string>& app, FoundLinks* found,
                ErrorText* error) {
  LinkTargets links;
  if (!collectLinks(folder, &links, error)) return false;
  *found = {};
  if (const auto faults = faultsOf(links, app); !faults.empty()) {
    found->refused = fmt::format("{} ({})", faults.front().path, faults.front().reason);
    return true;
  }
  // Targets are free of links now, so this asks about nothing else.
  for (const auto& [path, target] : links) {
    if (!fileExists(joinPath(folder, path))) found->dangling.push_back(path);
  }
  return true;
}

bool refuseLinks(const std::string& folder, const std::optional<std::string>& app,
                 std::vector<std::string>* dangling, ErrorText* error) {
  FoundLinks found;
  if (!judgeLinks(folder, app, &found, error)) return false;
  if (dangling != nullptr) *dangling = found.dangling;
  return !found.refused ||
         fail(error, "The input holds a link that is not accepted: " + printable(*found.refused));
}

}  // namespace tovrek
