// The files of a folder, as a tree.
#include "host/MappedFile.h"
#include "host/file_status.h"
#include "host/paths.h"
#include "inspect/Tree.h"

namespace tovrek::inspect {
namespace {

class FolderTree : public Tree {
 public:
  explicit FolderTree(std::string root) : root_(std::move(root)) {}

  bool list(ErrorText* error) {
    const auto take = [this](const WalkedItem& walked) {
      if (walked.kind == ItemKind::kDirectory) return true;
      Item item{.path = walked.relativePath, .kind = walked.kind};
      if (const auto status = statusNoFollow(joinPath(root_, walked.relativePath))) {
        item.size = status->size;
        item.permissions = status->mode & 07777;
      }
      items_.push_back(std::move(item));
      return true;
    };
    if (!walkDirectory(root_, take, error)) return false;
    finish();
    return true;
  }

  bool isPacked() const override { return false; }

 protected:
  std::optional<Contents> contentsOf(const Item& item, ErrorText* error) const override {
    const std::string path = joinPath(root_, item.path);
    if (item.kind == ItemKind::kLink) {
      const auto target = linkTarget(path, error);
      if (!target) return std::nullopt;
      const auto kept = std::make_shared<const std::string>(*target);
      return Contents(kept, std::as_bytes(std::span(*kept)));
    }
    const auto file = std::make_shared<MappedFile>();
    if (!file->open(path, error)) return std::nullopt;
    return Contents(file, file->bytes());
  }

 private:
  std::string root_;
};

}  // namespace

std::unique_ptr<Tree> openFolder(const std::string& path, ErrorText* error) {
  auto tree = std::make_unique<FolderTree>(path);
  if (!tree->list(error)) return nullptr;
  return tree;
}

}  // namespace tovrek::inspect
