#include "signing/CodeObject.h"

#include "host/files.h"
#include "host/paths.h"

namespace tovrek::signing {
namespace {

constexpr const char* kNoBundle = "bundle format unrecognized, invalid, or unsuitable";

// An executable's name may not lead out of the bundle.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

bool readInfo(CodeObject* object) {
  if (!readFile(joinPath(object->root, kInfoPlistFile), &object->infoPlist)) return false;
  const auto plist = parsePlist(object->infoPlist);
  if (plist && plist->dictionary() != nullptr) object->info = *plist->dictionary();
  return true;
}

std::optional<CodeObject> resolveBundle(const std::string& folder, ErrorText* error) {
  CodeObject object;
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
  if (!isPlainFile(object.executable)) object.executable = joinPath(folder, kInfoPlistFile);
  return object;
}

// The bundle that has this file as its executable.
std::optional<CodeObject> bundleAround(const std::string& file) {
  const std::string folder = deletingLastPathComponent(file);
  if (!isPlainFile(joinPath(folder, kInfoPlistFile))) return std::nullopt;
  auto object = resolveBundle(folder, nullptr);
  const bool states = object && stringForKey(object->info, "CFBundleExecutable") != nullptr;
  if (!states || object->executable != file) return std::nullopt;
  return object;
}

}  // namespace

std::optional<CodeObject> CodeObject::resolve(const std::string& path, ErrorText* error) {
  const auto real = realPath(path);
  if (!real) {
    fail(error, "No such file or directory");
    return std::nullopt;
  }
  if (isDirectory(*real)) return resolveBundle(*real, error);
  if (auto bundle = bundleAround(*real)) return bundle;
  CodeObject object;
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
