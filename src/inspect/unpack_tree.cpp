// Putting a tree's files on the disk, for judges that know nothing else.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "host/FolderCursor.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "inspect/judges.h"

namespace tovrek::inspect {
namespace {

constexpr uint32_t kPlainPermissions = 0644;

class Unpacking {
 public:
  Unpacking(const Tree& tree, std::string_view folder, Findings* findings)
      : tree_(tree),
        items_(tree.below(folder)),
        skipped_(folder.empty() ? 0 : folder.size() + 1),
        findings_(*findings) {}

  bool run(const FolderCursor& root) {
    // Folders first, so that no two threads make the same one.
    FolderCursor first(root);
    for (const Tree::Item& item : items_) {
      if (!first.enter(deletingLastPathComponent(relative(item)), true)) miss(item, errnoText());
    }
    forEachPart(items_.size(), 1, [&](size_t begin, size_t end) {
      FolderCursor cursor(root);
      for (size_t i = begin; i < end; ++i) {
        if (items_[i].kind == ItemKind::kFile) put(items_[i], cursor);
      }
    });
    for (const Tree::Item& item : items_) {
      if (item.kind == ItemKind::kLink) put(item, first);
    }
    return whole_;
  }

 private:
  std::string relative(const Tree::Item& item) const { return item.path.substr(skipped_); }
  static std::string errnoText() { return std::strerror(errno); }

  void put(const Tree::Item& item, FolderCursor& cursor) {
    ErrorText reason;
    const auto contents = tree_.read(item, kLargestItem, &reason);
    if (!contents) return miss(item, reason.text());
    const std::string path = relative(item), name = lastPathComponent(path);
    bool done = cursor.enter(deletingLastPathComponent(path), false);
    if (done && item.kind == ItemKind::kLink) {
      done = cursor.makeLink(name, std::string(contents->text()));
    } else if (done) {
      NewFile file = cursor.createFile(name);
      done = file.isOpen() && file.write(contents->text()) && file.finish(kPlainPermissions, 0);
    }
    if (!done) miss(item, errnoText());
  }

  void miss(const Tree::Item& item, const std::string& reason) {
    whole_ = false;
    const std::scoped_lock held(lock_);
    report(&findings_, "item-unreadable", item.path, "it cannot be unpacked: " + reason);
  }

  const Tree& tree_;
  const std::span<const Tree::Item> items_;
  const size_t skipped_;
  Findings& findings_;
  std::mutex lock_;
  std::atomic<bool> whole_{true};
};

}  // namespace

bool unpackTree(const Tree& tree, const std::string& folder, const std::string& target,
                Findings* findings, ErrorText* error) {
  FolderCursor root;
  if (!FolderCursor::makeRoot(target) || !root.openRoot(target)) {
    return fail(error, std::strerror(errno));
  }
  return Unpacking(tree, folder, findings).run(root) ||
         fail(error, "not all files of the archive can be had");
}

}  // namespace tovrek::inspect
