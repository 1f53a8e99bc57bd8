#include "batch/app_facts.h"

#include "formats/PlistValue.h"
#include "host/paths.h"
#include "inspect/Tree.h"
#include "inspect/readers.h"

namespace tovrek::batch {
namespace {

std::optional<std::string> none(ErrorText* error, std::string reason) {
  fail(error, std::move(reason));
  return std::nullopt;
}

std::optional<std::string> identifierInApp(const inspect::Tree& tree, ErrorText* error) {
  inspect::Findings findings;
  const auto folder = inspect::findApp(tree, &findings);
  if (!folder) {
    return none(error, findings.empty() ? "it holds no app" : findings.front().reason);
  }
  ErrorText reason;
  const auto contents =
      tree.read(joinPath(*folder, "Info.plist"), inspect::kLargestDocument, &reason);
  const auto info = contents ? parsePlist(contents->text(), &reason) : std::nullopt;
  if (!info || info->dictionary() == nullptr) {
    return none(error, "its Info.plist cannot be read: " +
                           (info ? std::string("it holds no dictionary") : reason.text()));
  }
  const std::string* identifier = stringForKey(*info->dictionary(), "CFBundleIdentifier");
  if (identifier == nullptr) return none(error, "its app has no identifier");
  return *identifier;
}

// A package names its app's in the manifest; what is inside need not be unpacked for that.
std::optional<std::string> identifierInPackage(const inspect::Tree& tree, ErrorText* error) {
  inspect::Findings findings;
  const inspect::Package package = inspect::readPackage(tree, &findings);
  for (const auto& [element, text] : package.manifest) {
    if (lastPathComponent(element) == "BundleID" && !text.empty()) return text;
  }
  return none(error, findings.empty() ? "its manifest names no app" : findings.front().reason);
}

}  // namespace

std::optional<std::string> appIdentifier(const std::string& path, ErrorText* error) {
  ErrorText reason;
  const auto tree = inspect::openArchive(path, &reason);
  if (!tree) return none(error, reason.text());
  return toLowerAscii(pathExtension(path)) == "wex" ? identifierInPackage(*tree, error)
                                                    : identifierInApp(*tree, error);
}

}  // namespace tovrek::batch
