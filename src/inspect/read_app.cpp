// An app out of a tree of files: its bundles, their code, its profiles and icons.
#include <algorithm>
#include <set>

#include "formats/png_size.h"
#include "host/paths.h"
#include "icons/IconConverter.h"
#include "inspect/readers.h"
#include "inspect/text.h"
#include "macho/layout.h"

namespace tovrek::inspect {
namespace {

constexpr std::string_view kInfoPlist = "Info.plist";
constexpr size_t kMostIcons = 64;
constexpr uint64_t kLargestIcon = 512 << 10;
// Of an icon that is shown in another form than it has.
constexpr uint64_t kMostPixels = 2048 * 2048;

std::string below(const std::string& folder, std::string_view path) {
  return joinPath(folder, path);
}

// `place` is where a finding says that it is.
std::optional<PlistDictionary> readInfo(const Tree& tree, const std::string& path,
                                        const std::string& place, Findings* findings) {
  if (tree.find(path) == nullptr) return std::nullopt;
  ErrorText reason;
  const auto contents = tree.read(path, kLargestDocument, &reason);
  const auto plist = contents ? parsePlist(contents->text(), &reason) : std::nullopt;
  if (plist && plist->dictionary() != nullptr) return *plist->dictionary();
  report(findings, "info-unreadable", place,
         plist ? "the file holds no dictionary" : "the file cannot be read: " + reason.text());
  return std::nullopt;
}

CodeKind kindOfBundle(const std::string& folder) {
  const std::string extension = toLowerAscii(pathExtension(folder));
  if (extension == "appex") return CodeKind::kExtension;
  if (extension == "app") return CodeKind::kWatchApp;
  if (extension == "framework") return CodeKind::kFramework;
  return CodeKind::kBundle;
}

bool isCodeFolder(const std::string& folder) {
  const std::string extension = toLowerAscii(pathExtension(folder));
  return extension == "appex" || extension == "app" || extension == "framework" ||
         extension == "xctest";
}

class AppReader {
 public:
  AppReader(const Tree& tree, const std::string& folder, const std::string& name,
            Findings* findings)
      : tree_(tree), folder_(folder), findings_(*findings) {
    app_.folder = name;
  }

  App read() {
    addBundle("", CodeKind::kApp);
    for (const Tree::Item& item : tree_.below(folder_)) {
      app_.size += item.size;
      ++app_.files;
      const std::string path = relative(item);
      if (lastPathComponent(path) == kInfoPlist) {
        const std::string bundle = deletingLastPathComponent(path);
        if (!bundle.empty() && isCodeFolder(bundle)) addBundle(bundle, kindOfBundle(bundle));
      }
    }
    addLooseCode();
    std::sort(app_.code.begin() + 1, app_.code.end(),
              [](const CodeObject& a, const CodeObject& b) { return a.path < b.path; });
    describe();
    findIcons();
    return std::move(app_);
  }

 private:
  std::string relative(const Tree::Item& item) const {
    return folder_.empty() ? item.path : item.path.substr(folder_.size() + 1);
  }

  void addBundle(const std::string& path, CodeKind kind) {
    CodeObject object;
    object.path = path;
    object.kind = kind;
    const std::string root = below(folder_, path);
    object.info = readInfo(tree_, below(root, kInfoPlist),
                           below(app_.folder, below(path, kInfoPlist)), &findings_);
    std::string name = deletingPathExtension(lastPathComponent(path.empty() ? app_.folder : root));
    if (object.info) {
      object.identifier = stringForKeyOr(*object.info, "CFBundleIdentifier", "");
      object.version = stringForKeyOr(*object.info, "CFBundleShortVersionString",
                                      stringForKeyOr(*object.info, "CFBundleVersion", ""));
      object.minimumSystem = stringForKeyOr(*object.info, "MinimumOSVersion", "");
      name = stringForKeyOr(*object.info, "CFBundleExecutable", name);
    }
    if (name.find('/') == std::string::npos) readExecutable(below(path, name), &object);
    const std::string profile = below(root, device::kEmbeddedProfile);
    if (const auto contents = tree_.read(profile, kLargestDocument)) {
      object.profile = readProfileDetails(contents->text(), profile, nullptr);
    }
    app_.code.push_back(std::move(object));
  }

  void readExecutable(const std::string& path, CodeObject* object) {
    const Tree::Item* item = tree_.find(below(folder_, path));
    if (item == nullptr || item->kind != ItemKind::kFile) {
      object->problem = item == nullptr ? "there is no file of that name" : "it is no plain file";
      return;
    }
    object->executable = path;
    object->permissions = item->permissions;
    seen_.insert(path);
    ErrorText reason;
    const auto contents = tree_.readAndKeep(*item, &reason);
    if (contents) {
      object->slices = readSlices(contents->text(), &object->problem);
    } else {
      object->problem = reason.text();
    }
  }

  // Libraries, and Mach-O files of any name, that no bundle has as its executable.
  void addLooseCode() {
    for (const Tree::Item& item : tree_.below(folder_)) {
      const std::string path = relative(item);
      const std::string extension = pathExtension(path);
      const bool mayBe = extension == "dylib" || extension.empty();
      if (!mayBe || item.kind != ItemKind::kFile || seen_.contains(path)) continue;
      if (path.find("_CodeSignature/") != std::string::npos) continue;
      const auto contents = tree_.readAndKeep(item);
      if (!contents || !looksLikeCode(contents->text())) continue;
      CodeObject object;
      object.path = path;
      object.executable = path;
      object.permissions = item.permissions;
      object.slices = readSlices(contents->text(), &object.problem);
      app_.code.push_back(std::move(object));
    }
  }

  void describe() {
    const CodeObject& main = app_.main();
    const PlistDictionary info = main.info.value_or(PlistDictionary());
    app_.identifier = main.identifier;
    app_.version = main.version;
    app_.build = stringForKeyOr(info, "CFBundleVersion", "");
    app_.minimumSystem = main.minimumSystem;
    app_.name =
        stringForKeyOr(info, "CFBundleDisplayName",
                       stringForKeyOr(info, "CFBundleName", deletingPathExtension(app_.folder)));
    describeDevices(info);
    for (const Slice& slice : main.slices) {
      app_.architectures.push_back(slice.architecture);
      app_.isEncrypted |= slice.isEncrypted();
      app_.isWrapped |= slice.loadsManagement;
      for (const std::string& library : slice.libraries) {
        app_.isSdk |= isSdkLibrary(library);
        app_.isIntune |= library.find("IntuneMAM.framework/") != std::string::npos;
      }
    }
    app_.isIntune |= tree_.holdsFolder(below(folder_, "Frameworks/IntuneMAM.framework")) ||
                     tree_.holdsFolder(below(folder_, "IntuneMAMResources.bundle"));
    constexpr std::string_view kLibraryInfo = "OrvaneDylib.bundle/Info.plist";
    const auto library =
        readInfo(tree_, below(folder_, kLibraryInfo), below(app_.folder, kLibraryInfo), &findings_);
    if (library) {
      app_.libraryVersion = stringForKeyOr(*library, "CFBundleShortVersionString",
                                           stringForKeyOr(*library, "CFBundleVersion", ""));
    }
  }

  static bool isSdkLibrary(const std::string& name) {
    constexpr std::string_view kSdk[] = {"WEX.framework/", "WEXNetworkOnly.framework/",
                                         "WexFrameworkLoader.framework/", "ORVMAMCore.framework/"};
    return std::ranges::any_of(
        kSdk, [&](std::string_view part) { return name.find(part) != std::string::npos; });
  }

  void describeDevices(const PlistDictionary& info) {
    const auto* families = arrayForKey(info, "UIDeviceFamily");
    if (families == nullptr) return;
    for (const PlistValue& family : *families) {
      const std::string number = valueText(family);
      if (number == "1") app_.devices.emplace_back("iPhone");
      if (number == "2") app_.devices.emplace_back("iPad");
      if (number == "3") app_.devices.emplace_back("Apple TV");
      if (number == "4") app_.devices.emplace_back("Apple Watch");
    }
  }

  void addIconNames(const PlistDictionary& from, std::set<std::string>* names) const {
    const auto* list = arrayForKey(from, "CFBundleIconFiles");
    if (list == nullptr) return;
    for (const PlistValue& name : *list) {
      if (name.string() != nullptr && !name.string()->empty()) names->insert(*name.string());
    }
  }

  // The files are named without what stands for their size and scale.
  void findIcons() {
    const PlistDictionary info = app_.main().info.value_or(PlistDictionary());
    std::set<std::string> names;
    addIconNames(info, &names);
    for (const char* key : {"CFBundleIcons", "CFBundleIcons~ipad"}) {
      const auto* icons = dictionaryForKey(info, key);
      const auto* primary =
          icons == nullptr ? nullptr : dictionaryForKey(*icons, "CFBundlePrimaryIcon");
      if (primary != nullptr) addIconNames(*primary, &names);
    }
    for (const Tree::Item& item : tree_.below(folder_)) {
      const std::string path = relative(item);
      if (app_.icons.size() >= kMostIcons) break;
      if (path.find('/') != std::string::npos || pathExtension(path) != "png") continue;
      const bool isIcon = std::ranges::any_of(names, [&](const std::string& name) {
        return path.starts_with(deletingPathExtension(name));
      });
      if (isIcon) app_.icons.push_back(readIcon(tree_, item.path));
    }
  }

  const Tree& tree_;
  const std::string& folder_;
  Findings& findings_;
  App app_;
  std::set<std::string> seen_;  // executables of bundles
};

}  // namespace

App readApp(const Tree& tree, const std::string& folder, const std::string& name,
            Findings* findings) {
  return AppReader(tree, folder, name, findings).read();
}

std::optional<std::string> findApp(const Tree& tree, Findings* findings) {
  // As a wrap looks for it: the first name in the order of bytes.
  for (const Tree::Item& item : tree.below("Payload")) {
    const size_t end = item.path.find('/', std::string_view("Payload/").size());
    if (end == std::string::npos) continue;
    const std::string folder = item.path.substr(0, end);
    if (pathExtension(folder) == "app") return folder;
  }
  report(findings, "app-missing", "Payload", "the archive holds no Payload/NAME.app");
  return std::nullopt;
}

Icon readIcon(const Tree& tree, const std::string& path) {
  Icon icon;
  icon.path = path;
  const auto contents = tree.read(path, kLargestIcon);
  if (!contents) return icon;
  const auto size = pngSize(contents->text());
  if (!size) return icon;
  icon.width = size->width;
  icon.height = size->height;
  icon.png = contents->text();
  if (auto standard = IconConverter().standardForm(icon.png, kMostPixels)) {
    icon.png = std::move(*standard);
  }
  return icon;
}

}  // namespace tovrek::inspect
