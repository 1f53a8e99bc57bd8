#include "package/AppBundle.h"

#include "host/files.h"
#include "host/paths.h"

namespace tovrek {

std::optional<AppBundle> AppBundle::open(const std::string& path) {
  if (!isDirectory(path)) return std::nullopt;
  return AppBundle(path);
}

PlistDictionary AppBundle::infoPlist() const {
  const auto path = resourcePath("Info", "plist");
  if (!path) return {};
  return readPlistDictionary(*path).value_or(PlistDictionary());
}

bool AppBundle::infoPlistIsReadable(ErrorText* error) const {
  const auto path = resourcePath("Info", "plist");
  ErrorText reason;
  if (!path || readPlistDictionary(*path, &reason)) return true;
  return fail(error, "Failed to read the Info.plist " + *path + ". Error:" + reason.text());
}

std::optional<std::string> AppBundle::executablePath() const {
  const PlistDictionary info = infoPlist();
  const std::string* named = stringForKey(info, "CFBundleExecutable");
  const std::string name = named != nullptr && !named->empty()
                               ? *named
                               : deletingPathExtension(lastPathComponent(path_));
  const std::string file = joinPath(path_, name);
  if (!isPlainFile(file) || !holds(file)) return std::nullopt;
  return file;
}

std::optional<std::string> AppBundle::resourcePath(std::string_view name,
                                                   std::string_view type) const {
  std::string fileName(name);
  if (!type.empty()) fileName.append(".").append(type);
  const std::string file = joinPath(path_, fileName);
  if (fileName.empty() || !holds(file)) return std::nullopt;
  return file;
}

bool AppBundle::holds(const std::string& item) const {
  const auto root = realPath(path_);
  const auto real = realPath(item);
  return root && real && real->starts_with(*root + "/");
}

}  // namespace tovrek
