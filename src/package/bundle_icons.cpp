#include "package/bundle_icons.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "host/files.h"
#include "host/paths.h"
#include "icons/IconConverter.h"

namespace tovrek {
namespace {

constexpr std::string_view kPng = ".png";
constexpr const char* kIconFiles = "CFBundleIconFiles";

bool endsWithPng(std::string_view name) {
  return name.size() > kPng.size() &&
         equalsIgnoringCase(name.substr(name.size() - kPng.size()), kPng);
}

// "AppIcon-183.5x83.5" has a dot and no extension, so only ".png" itself counts as one.
std::string stemOf(const std::string& iconName) {
  return endsWithPng(iconName) ? iconName.substr(0, iconName.size() - kPng.size()) : iconName;
}

// --- The list in Info.plist ---

const PlistValue::Array* filesOf(const PlistDictionary& icons) {
  const char* holder =
      icons.contains("CFBundlePrimaryIcon") ? "CFBundlePrimaryIcon" : "UINewsstandIcon";
  const PlistDictionary* icon = dictionaryForKey(icons, holder);
  return icon == nullptr ? nullptr : arrayForKey(*icon, kIconFiles);
}

const PlistValue::Array* filesOfIconDictionary(const PlistDictionary& info) {
  for (const char* key :
       {"CFBundleIcons", "CFBundleIcons~iphone", "CFBundleIcons~ipad", "CFBundleIcons~ipod"}) {
    const PlistDictionary* icons = dictionaryForKey(info, key);
    if (icons != nullptr && !icons->empty()) return filesOf(*icons);
  }
  return nullptr;
}

const PlistValue::Array* filesOfFirstDocumentType(const PlistDictionary& info) {
  const PlistValue::Array* types = arrayForKey(info, "CFBundleDocumentTypes");
  if (types == nullptr || types->empty()) return nullptr;
  const PlistDictionary* first = types->front().dictionary();
  const PlistValue::Array* files =
      first == nullptr ? nullptr : arrayForKey(*first, "CFBundleTypeIconFiles");
  // What is no text can only stand for a missing value.
  const bool isList = files != nullptr && !files->empty() && files->front().string() != nullptr;
  return isList ? files : nullptr;
}

// The old top-level list, and the conventional files that it need not name. Only without an icon
// dictionary, which replaces it.
PlistValue::Array topLevelFiles(const AppBundle& bundle, const PlistDictionary& info) {
  const PlistValue::Array* listed = arrayForKey(info, kIconFiles);
  const PlistDictionary* icons = dictionaryForKey(info, "CFBundleIcons");
  if (listed == nullptr || (icons != nullptr && !icons->empty())) return {};
  PlistValue::Array names = *listed;
  const auto isListed = [listed](const std::string& stem) {
    return std::ranges::any_of(*listed, [&](const PlistValue& entry) {
      return entry.string() != nullptr && stemOf(*entry.string()) == stem;
    });
  };
  for (const char* name : {"Icon.png", "Icon-60@2x.png", "Icon-72.png", "Icon-76.png"}) {
    if (bundle.resourcePath(name, "") && !isListed(stemOf(name))) names.emplace_back(name);
  }
  return names;
}

PlistValue::Array listedIconNames(const AppBundle& bundle) {
  const PlistDictionary info = bundle.infoPlist();
  if (PlistValue::Array names = topLevelFiles(bundle, info); !names.empty()) return names;
  for (const PlistValue::Array* names :
       {filesOfIconDictionary(info), filesOfFirstDocumentType(info)}) {
    if (names != nullptr && !names->empty()) return *names;
  }
  const PlistValue* single = info.find("CFBundleIconFile");
  return single == nullptr ? PlistValue::Array() : PlistValue::Array{*single};
}

// --- Files for the names ---

// Icons stand in the top folder; a name with a path would end up outside of the package.
bool isPlainName(const std::string& name) {
  return name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

bool hasFile(const AppBundle& bundle, const std::string& name) {
  const std::optional<std::string> path = bundle.resourcePath(name, "");
  return path && isPlainFile(*path);
}

// How far a file "<stem><rest>.png" is from the icon itself: exact scales before those of one
// device family, then everything else that starts alike.
size_t distance(std::string_view rest) {
  size_t rank = 0;
  for (const char* device : {"", "~iphone", "~ipad", "~ipod"}) {
    for (const char* scale : {"", "@2x", "@3x"}) {
      if (rest == std::string(scale) + device) return rank;
      rank++;
    }
  }
  return rank;
}

// What stands in the bundle's top folder, listed once for all names.
class TopFolder {
 public:
  TopFolder(const AppBundle& bundle, const WrapperLogger& logger)
      : bundle_(bundle), logger_(logger) {}

  // The file for a listed icon name, made from the best match when there is none of that name.
  std::optional<std::string> fileFor(const std::string& iconName) {
    if (iconName.empty() || !isPlainName(iconName)) return std::nullopt;
    const std::string file = stemOf(iconName) + std::string(kPng);
    return hasFile(bundle_, file) ? file : madeFile(iconName);
  }

  // The file for an icon name without one, made from the best match.
  std::optional<std::string> madeFile(const std::string& iconName) {
    const std::string stem = stemOf(iconName);
    const std::optional<std::string> match = bestMatch(stem);
    if (!match) return std::nullopt;
    const std::string file = stem + std::string(kPng);
    // An own converter, so that the settings of the run's stay as they are.
    IconConverter converter;
    if (!converter.makeStandardIcon(joinPath(bundle_.path(), *match),
                                    joinPath(bundle_.path(), file))) {
      logger_.logError(
          fmt::format("ERROR! Could not convert iOS icon PNG files to Standard format, or file "
                      "{} does not exists",
                      *match));
      return std::nullopt;
    }
    names_->insert(file);
    return file;
  }

 private:
  std::optional<std::string> bestMatch(const std::string& stem) {
    std::optional<std::string> best;
    size_t bestDistance = 0;
    if (!list()) return best;
    // Names that start alike stand together.
    for (auto at = names_->lower_bound(stem); at != names_->end() && at->starts_with(stem); ++at) {
      const std::string& name = *at;
      if (!endsWithPng(name)) continue;
      const std::string nameStem = stemOf(name);
      if (nameStem.size() < stem.size()) continue;
      const size_t nameDistance = distance(std::string_view(nameStem).substr(stem.size()));
      if ((best && nameDistance >= bestDistance) || !hasFile(bundle_, name)) continue;
      best = name;
      bestDistance = nameDistance;
    }
    return best;
  }

  bool list() {
    if (names_) return true;
    ErrorText reason;
    const auto names = listDirectory(bundle_.path(), &reason);
    if (names) {
      names_.emplace(names->begin(), names->end());
    } else {
      logger_.logError(fmt::format("{}: {}", bundle_.path(), reason.text()));
    }
    return names_.has_value();
  }

  const AppBundle& bundle_;
  const WrapperLogger& logger_;
  std::optional<std::set<std::string>> names_;
};

}  // namespace

std::optional<std::vector<std::string>> readIconsDetailsFromAppBundle(const AppBundle& bundle,
                                                                      const WrapperLogger& logger) {
  std::vector<std::string> files;
  TopFolder folder(bundle, logger);
  int index = -1;
  for (const PlistValue& entry : listedIconNames(bundle)) {
    index++;
    const std::string* name = entry.string();
    if (name == nullptr || name->empty()) {
      logger.logError(fmt::format("File index {} does not contain icon entrty", index));
      continue;
    }
    const std::optional<std::string> file = folder.fileFor(*name);
    if (!file) {
      logger.logError(fmt::format(
          "File {} does not exist. Not adding to the list of icons in manifest.xml.", *name));
      continue;
    }
    files.push_back(*file);
  }
  if (files.empty()) return std::nullopt;
  return files;
}

std::optional<std::string> findAndCreateMatchingPatternForFile(const std::string& iconName,
                                                               const std::string& bundlePath,
                                                               const WrapperLogger& logger) {
  const std::optional<AppBundle> bundle = AppBundle::open(bundlePath);
  if (!bundle || iconName.empty() || !isPlainName(iconName)) return std::nullopt;
  const std::string file = stemOf(iconName) + std::string(kPng);
  if (hasFile(*bundle, file)) {
    logger.logWarning(
        fmt::format("File {} already exists in app bundle. There wasn't any need to run through "
                    "this method.",
                    file));
    return file;
  }
  return TopFolder(*bundle, logger).madeFile(iconName);
}

}  // namespace tovrek
