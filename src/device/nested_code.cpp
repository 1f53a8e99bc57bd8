#include "device/nested_code.h"

#include <algorithm>
#include <set>

#include "device/installation.h"
#include "host/paths.h"
#include "signing/CodeFile.h"
#include "signing/CodeObject.h"

namespace tovrek::device {
namespace {

bool takesProfile(const std::string& extension) {
  return extension == "appex" || extension == "app";
}

bool holdsCode(const std::string& extension) {
  return takesProfile(extension) || extension == "framework" || extension == "xctest";
}

class NestedCodeWalk {
 public:
  NestedCodeWalk(const std::string& app, const signing::FileSource& files,
                 std::vector<NestedCode>* found)
      : app_(app), files_(files), found_(*found) {}

  void visit(const WalkedItem& item) {
    const std::string path = joinPath(app_, item.relativePath);
    const std::string extension = pathExtension(item.relativePath);
    if (item.kind == ItemKind::kDirectory && holdsCode(extension)) addBundle(path, extension);
    if (item.kind == ItemKind::kFile && (extension == "dylib" || extension.empty())) {
      addFile(path, extension == "dylib");
    }
  }
  void addExecutableOf(const std::string& bundle) {
    const auto object = signing::CodeObject::resolve(bundle, nullptr, files_);
    if (object) executables_.insert(object->executable);
  }

 private:
  void addBundle(const std::string& path, const std::string& extension) {
    const auto object = signing::CodeObject::resolve(path, nullptr, files_);
    if (!object || !object->hasExecutable()) return;
    executables_.insert(object->executable);
    found_.push_back({path, enclosing(path), takesProfile(extension)});
    if (extension == "app") apps_.push_back(path);
  }
  void addFile(const std::string& path, bool isLibrary) {
    const auto real = files_.realPath(path);
    if (real && executables_.contains(*real)) return;
    const auto file = signing::CodeFile::open(path, nullptr, files_);
    if (isLibrary || (file && file->isMachO())) found_.push_back({path, enclosing(path)});
  }
  // The innermost of the apps seen so far: a walk meets a folder before what it holds.
  std::string enclosing(const std::string& path) const {
    const auto around = std::find_if(apps_.rbegin(), apps_.rend(), [&](const std::string& app) {
      return path.starts_with(app + "/");
    });
    return around == apps_.rend() ? app_ : *around;
  }

  const std::string& app_;
  const signing::FileSource& files_;
  std::vector<NestedCode>& found_;
  std::vector<std::string> apps_;
  std::set<std::string> executables_;
};

}  // namespace

bool findNestedCode(const std::string& appPath, const signing::FileSource& files,
                    std::vector<NestedCode>* found, ErrorText* error) {
  NestedCodeWalk walk(appPath, files, found);
  walk.addExecutableOf(appPath);
  const auto visit = [&](const WalkedItem& item) {
    walk.visit(item);
    return lastPathComponent(item.relativePath) != signing::kSignatureFolder;
  };
  return files.walk(appPath, visit, error);
}

bool findProfiledBundles(const std::string& appPath, std::vector<std::string>* paths,
                         ErrorText* error) {
  std::vector<NestedCode> code;
  if (!findNestedCode(appPath, signing::FileSource::disk(), &code, error)) return false;
  for (const NestedCode& each : code) {
    if (each.takesProfile) paths->push_back(each.path);
  }
  std::ranges::reverse(*paths);
  return true;
}

}  // namespace tovrek::device
