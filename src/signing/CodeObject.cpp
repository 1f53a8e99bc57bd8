#include "signing/CodeObject.h"

#include "host/paths.h"

namespace tovrek::signing {
namespace {

constexpr const char* kNoBundle = "bundle format unrecognized, invalid, or unsuitable";

// An executable's name may not lead out of the bundle.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// Exists and is not a folder.
bool isFileOf(const FileSource& files, const std::string& path) {
  return files.kindBehind(path).value_or(ItemKind::kDirectory) != ItemKind::kDirectory;
}

bool readInfo(CodeObject* object) {
  const std::string path = joinPath(object->root, kInfoPlistFile);
  if (!object->files->read(path, &object->infoPlist)) return false;
  const auto plist = parsePlist(object->infoPlist);
  if (plist && plist->dictionary() != nullptr) object->info = *plist->dictionary();
  return true;
}

std::optional<CodeObject> resolveBundle(const std::string& folder, ErrorText* error,
                                        const FileSource& files) {
  CodeObject object;
  object.files = &files;
  object.root = folder;
  if (!readInfo(&object)) {
    fail(error, kNoBundle);
    return std::nullopt;
  }
  const std::string name = stringForKeyOr(object.info, "CFBundleExecutable",
                                          deletingPathExtension(lastPathComponent(folder)));
  if (!isPlainName(name)) {
    fail(error, kNoBundle);
    return std::nullopt;
  }
  object.executable = joinPath(folder, name);
  const auto kind = files.kindBehind(object.executable);
  // Taken for a bundle without an executable, an app would get no signature in its code.
  if (!kind && !files.isKnownMissing(object.executable)) {
    fail(error, object.executable + " cannot be looked at");
    return std::nullopt;
  }
  if (kind.value_or(ItemKind::kDirectory) == ItemKind::kDirectory) {
    object.executable = joinPath(folder, kInfoPlistFile);
  }
  return object;
}

// The bundle that has this file as its executable.
std::optional<CodeObject> bundleAround(const std::string& file, const FileSource& files) {
  const std::string folder = deletingLastPathComponent(file);
  if (!isFileOf(files, joinPath(folder, kInfoPlistFile))) return std::nullopt;
  auto object = resolveBundle(folder, nullptr, files);
  const bool states = object && stringForKey(object->info, "CFBundleExecutable") != nullptr;
  if (!states || object->executable != file) return std::nullopt;
  return object;
}

}  // namespace

std::optional<CodeObject> CodeObject::resolve(const std::string& path, ErrorText* error,
                                              const FileSource& files) {
  const auto real = files.realPath(path);
  if (!real) {
    fail(error, "No such file or directory");
    return std::nullopt;
  }
  if (files.kindAt(*real) == ItemKind::kDirectory) return resolveBundle(*real, error, files);
  if (auto bundle = bundleAround(*real, files)) return bundle;
  CodeObject object;
  object.files = &files;
  object.executable = *real;
  return object;
}

bool CodeObject::hasExecutable() const {
  return !isBundle() || executable != joinPath(root, kInfoPlistFile);
}

std::string CodeObject::signatureFolder() const {
  return joinPath(root, kSignatureFolder);
}

std::string CodeObject::sealPath() const {
  return joinPath(signatureFolder(), kSealFile);
}

std::string CodeObject::executableName() const {
  return lastPathComponent(executable);
}

}  // namespace tovrek::signing
