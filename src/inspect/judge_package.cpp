// Whether a package's manifest tells the truth about what lies beside it.
#include <fmt/format.h>

#include <algorithm>

#include "formats/XmlDocument.h"
#include "formats/png_size.h"
#include "host/paths.h"
#include "inspect/judges.h"
#include "inspect/text.h"

namespace tovrek::inspect {
namespace {

// What a package states as the size of an app that a store delivers.
constexpr std::string_view kSizeInStore = "2000";

class PackageJudge {
 public:
  PackageJudge(const Tree& tree, Subject* subject)
      : tree_(tree), package_(*subject->package), findings_(subject->findings) {}

  void judgeFiles() {
    for (const std::string& file : package_.policies) judgeDocument(file);
    for (const std::string& file : package_.languages) judgeDocument(file);
    for (size_t i = 0; i < package_.manifest.size(); ++i) {
      if (endsWith(package_.manifest[i].first, "Icon/IconFile")) judgeIcon(i);
    }
    judgeArchive();
  }

  void judgeApp(const App& app, const PlistDictionary& settings) {
    compare("BundleID", app.identifier, "the app is");
    compare("AppVersion", app.version, "the app is of version");
    const std::string checksum = stringForKeyOr(settings, "CheckSum", "");
    const std::string* stated = text("MobileApp/BundleChecksum");
    if (!checksum.empty() && stated != nullptr && *stated != checksum) {
      add("manifest-checksum", "BundleChecksum",
          fmt::format("the manifest has {}, the app {}", *stated, checksum));
    }
    for (const auto& [key, name] : {std::pair{"AppID", "AppID"}, {"PackageID", "PackageID"}}) {
      const std::string value = stringForKeyOr(settings, key, "");
      if (!value.empty()) compare(name, value, "the app's own record says");
    }
  }

 private:
  static bool endsWith(const std::string& path, std::string_view end) {
    return path.ends_with(end);
  }

  void add(std::string_view code, std::string place, std::string reason) {
    report(&findings_, code, std::move(place), std::move(reason));
  }

  const std::string* text(std::string_view end) const {
    for (const auto& [path, value] : package_.manifest) {
      if (endsWith(path, end)) return &value;
    }
    return nullptr;
  }

  void compare(std::string_view element, const std::string& actual, std::string_view what) {
    const std::string* stated = text("MobileApp/" + std::string(element));
    if (stated == nullptr || *stated == actual) return;
    add("manifest-identifier", std::string(element),
        fmt::format("the manifest has {}, {} {}", *stated, what, actual));
  }

  void judgeDocument(const std::string& file) {
    ErrorText reason;
    const auto contents = tree_.read(file, kLargestDocument, &reason);
    if (!contents) {
      add("policy-unreadable", file, "the manifest names it: " + reason.text());
    } else if (!XmlDocument::parse(contents->text(), &reason)) {
      add("policy-unreadable", file, "it is no sound XML document: " + trimmed(reason.text()));
    }
  }

  // The sizes stand before the name.
  void judgeIcon(size_t at) {
    const std::string& file = package_.manifest[at].second;
    const auto contents = tree_.read(file, kLargestDocument);
    const auto size = contents ? pngSize(contents->text()) : std::nullopt;
    if (!size) {
      return add("manifest-icon", file, contents ? "it is no PNG file" : "there is no such file");
    }
    std::string stated;
    for (size_t i = at >= 2 ? at - 2 : 0; i < at; ++i) {
      const auto& [path, value] = package_.manifest[i];
      if (endsWith(path, "Icon/xRes") || endsWith(path, "Icon/yRes")) {
        stated += (stated.empty() ? "" : "x") + value;
      }
    }
    const std::string actual = fmt::format("{}x{}", size->width, size->height);
    if (!stated.empty() && stated != actual) {
      add("manifest-icon", file, fmt::format("the manifest has {}, the file {}", stated, actual));
    }
  }

  void judgeArchive() {
    const std::string* named = text("MobileApp/BundleFile");
    if (named != nullptr && !package_.appArchive.empty() && *named != package_.appArchive) {
      add("manifest-identifier", "BundleFile",
          fmt::format("the manifest has {}, the package {}", *named, package_.appArchive));
    }
    const std::string* stated = text("MobileApp/PackageSize");
    if (package_.appArchive.empty()) {
      add("package-app-missing", "", "there is no .ipa in the package");
    } else if (stated != nullptr && *stated != kSizeInStore) {
      const uint64_t size = tree_.find(package_.appArchive)->size;
      if (*stated != std::to_string(size)) {
        add("manifest-size", "PackageSize",
            fmt::format("the manifest has {}, the archive {} bytes", *stated, size));
      }
    }
  }

  const Tree& tree_;
  const Package& package_;
  Findings& findings_;
};

PlistDictionary settingsOf(const Tree& tree, const std::string& folder) {
  const auto contents = tree.read(joinPath(folder, "Orvane.plist"), kLargestDocument);
  const auto plist = contents ? parsePlist(contents->text()) : std::nullopt;
  return plist && plist->dictionary() != nullptr ? *plist->dictionary() : PlistDictionary();
}

}  // namespace

void judgePackage(const Tree& tree, const Tree* appTree, const std::string& appFolder,
                  Subject* subject) {
  PackageJudge judge(tree, subject);
  judge.judgeFiles();
  if (appTree != nullptr && subject->app) {
    judge.judgeApp(*subject->app, settingsOf(*appTree, appFolder));
  }
}

}  // namespace tovrek::inspect
