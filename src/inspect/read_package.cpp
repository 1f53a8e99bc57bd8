// The package around a managed app: manifest, policies, icons.
#include <algorithm>

#include "formats/XmlDocument.h"
#include "host/paths.h"
#include "inspect/readers.h"

namespace tovrek::inspect {
namespace {

constexpr size_t kMostElements = 10000;
constexpr int kDeepestElement = 64;

class ManifestReader {
 public:
  explicit ManifestReader(Package* package) : package_(*package) {}

  // Every element without children, with the names of those around it.
  void read(const XmlNode& node, const std::string& around, int depth) {
    const std::string path = around.empty() ? node.name() : around + "/" + node.name();
    const auto children = node.children();
    if (children.empty() && package_.manifest.size() < kMostElements) take(path, node);
    if (depth >= kDeepestElement) return;
    for (const XmlNode& child : children) read(child, path, depth + 1);
  }

 private:
  void take(const std::string& path, const XmlNode& node) {
    const std::string text = node.text(), name = node.name();
    package_.manifest.emplace_back(path, text);
    if (name == "PolicyMetadata") package_.policies.push_back(text);
    if (name == "LanguageFile") package_.languages.push_back(text);
    if (name == "User") package_.packagedBy = text;
    if (name == "Date") package_.packagedAt = text;
  }

  Package& package_;
};

std::string extensionOf(const std::string& path) {
  return toLowerAscii(pathExtension(path));
}

}  // namespace

Package readPackage(const Tree& tree, Findings* findings) {
  Package package;
  std::string manifest;
  for (const Tree::Item& item : tree.items()) {
    if (item.kind != ItemKind::kFile || item.path.find('/') != std::string::npos) continue;
    package.files.emplace_back(item.path, item.size);
    const std::string extension = extensionOf(item.path);
    // Whoever reads the package takes the first of each kind.
    if (item.path == "manifest.xml") manifest = item.path;
    if (extension == "ipa" && package.appArchive.empty()) package.appArchive = item.path;
    if (extension == "png") package.icons.push_back(readIcon(tree, item.path));
  }
  if (manifest.empty()) {
    report(findings, "manifest-missing", "manifest.xml", "the package holds no manifest.xml");
    return package;
  }
  ErrorText reason;
  const auto contents = tree.read(manifest, kLargestDocument, &reason);
  const auto document = contents ? XmlDocument::parse(contents->text(), &reason) : std::nullopt;
  if (!document) {
    report(findings, "manifest-unreadable", manifest,
           "the manifest cannot be read: " + trimmed(reason.text()));
    return package;
  }
  ManifestReader(&package).read(document->root(), "", 0);
  return package;
}

}  // namespace tovrek::inspect
