#include "inspect/TreeSource.h"

#include <algorithm>

#include "host/paths.h"

namespace tovrek::inspect {
namespace {

// As many links one after the other as systems follow.
constexpr int kMostLinks = 40;
// As long as they take a path to be, with the zero byte at its end.
constexpr size_t kPathRoom = 4096;
constexpr const char* kMissing = "No such file or directory";

// Takes the first component off a path.
std::string_view takeComponent(std::string_view* path) {
  const std::string_view part = path->substr(0, path->find('/'));
  path->remove_prefix(std::min(part.size() + 1, path->size()));
  return part;
}

// Tells a visitor of the folders that lie between a root and each item, once.
class FolderAnnouncer {
 public:
  explicit FolderAnnouncer(const std::function<bool(const WalkedItem&)>& visit) : visit_(visit) {}

  // Whether the visitor wants what is in the folders around this path, from the walk's root.
  bool wants(const std::string& path) {
    if (isSkipped_ && path.starts_with(folder_)) return false;
    isSkipped_ = false;
    // What the path has in common with the last one is known.
    size_t at = 0;
    for (size_t end = folder_.find('/'); end != std::string::npos;
         end = folder_.find('/', end + 1)) {
      if (path.compare(0, end + 1, folder_, 0, end + 1) != 0) break;
      at = end + 1;
    }
    for (size_t end = path.find('/', at); end != std::string::npos; end = path.find('/', end + 1)) {
      folder_ = path.substr(0, end + 1);
      isSkipped_ = !visit_({path.substr(0, end), ItemKind::kDirectory});
      if (isSkipped_) return false;
      at = end + 1;
    }
    folder_ = path.substr(0, at);
    return true;
  }

 private:
  const std::function<bool(const WalkedItem&)>& visit_;
  std::string folder_;  // of the last item, with a slash at its end
  bool isSkipped_ = false;
};

}  // namespace

std::string TreeSource::inTree(const std::string& path) const {
  return joinPath(folder_, path);
}

const Tree::Item* TreeSource::find(const std::string& path) const {
  return tree_.find(inTree(path));
}

std::optional<std::string> TreeSource::realPath(const std::string& path) const {
  if (path.size() >= kPathRoom) return std::nullopt;
  std::string done, whole = path;
  std::string_view rest = whole;
  int links = 0;
  while (!rest.empty()) {
    const std::string_view part = takeComponent(&rest);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (done.empty()) return std::nullopt;
      done = deletingLastPathComponent(done);
      continue;
    }
    const std::string next = joinPath(done, std::string(part));
    const Tree::Item* item = find(next);
    if (item != nullptr && item->kind == ItemKind::kLink) {
      const auto target = linkTarget(next);
      if (!target || target->empty() || target->front() == '/' || ++links > kMostLinks) {
        return std::nullopt;
      }
      whole = joinPath(*target, std::string(rest));
      if (whole.size() >= kPathRoom) return std::nullopt;
      rest = whole;
      continue;
    }
    const bool isFolder = item == nullptr && tree_.holdsFolder(inTree(next));
    if (!isFolder && (item == nullptr || !rest.empty())) return std::nullopt;
    done = next;
  }
  return done;
}

std::optional<ItemKind> TreeSource::kindAt(const std::string& path) const {
  if (const Tree::Item* item = find(path)) return item->kind;
  if (tree_.holdsFolder(inTree(path))) return ItemKind::kDirectory;
  const std::string parent = deletingLastPathComponent(path);
  const auto real = realPath(parent);
  if (!real || *real == parent) return std::nullopt;
  return kindAt(joinPath(*real, lastPathComponent(path)));
}

std::optional<ItemKind> TreeSource::kindBehind(const std::string& path) const {
  const auto real = realPath(path);
  return real ? kindAt(*real) : std::nullopt;
}

std::optional<std::string> TreeSource::linkTarget(const std::string& path) const {
  const Tree::Item* item = find(path);
  if (item == nullptr || item->kind != ItemKind::kLink) return std::nullopt;
  const auto target = tree_.read(*item, kPathRoom - 1);
  return target ? std::optional(std::string(target->text())) : std::nullopt;
}

const Tree::Item* TreeSource::findBehind(const std::string& path, ErrorText* error) const {
  const Tree::Item* item = find(path);
  if (item != nullptr && item->kind == ItemKind::kFile) return item;
  const auto real = realPath(path);
  item = real ? find(*real) : nullptr;
  if (item == nullptr) fail(error, kMissing);
  return item;
}

std::optional<signing::FileSource::Contents> TreeSource::map(const std::string& path,
                                                             ErrorText* error) const {
  const Tree::Item* item = findBehind(path, error);
  const auto contents = item != nullptr ? tree_.readAndKeep(*item, error) : std::nullopt;
  if (!contents) return std::nullopt;
  return signing::FileSource::Contents{contents->owner(), contents->bytes(), false};
}

bool TreeSource::read(const std::string& path, std::string* contents, uint64_t limit,
                      ErrorText* error) const {
  const Tree::Item* item = findBehind(path, error);
  const auto got =
      item != nullptr ? tree_.read(*item, std::min(limit, kLargestItem), error) : std::nullopt;
  if (got) *contents = got->text();
  return got.has_value();
}

std::unique_ptr<signing::FileSource::Folder> TreeSource::folder(const std::string& path) const {
  class TreeFolder : public Folder {
   public:
    TreeFolder(const TreeSource& source, std::string root)
        : source_(source), root_(std::move(root)) {}
    bool readPieces(const std::string& below, std::span<char> /*room*/,
                    const std::function<void(std::string_view)>& take) const override {
      const Tree::Item* item = source_.findBehind(joinPath(root_, below), nullptr);
      const auto contents = item != nullptr ? source_.tree_.read(*item) : std::nullopt;
      if (contents) take(contents->text());
      return contents.has_value();
    }

   private:
    const TreeSource& source_;
    const std::string root_;
  };
  return std::make_unique<TreeFolder>(*this, path);
}

bool TreeSource::walk(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
                      ErrorText* error) const {
  const std::string folder = inTree(root);
  const auto items = tree_.below(folder);
  if (items.empty()) return fail(error, kMissing);
  FolderAnnouncer announcer(visit);
  for (const Tree::Item& item : items) {
    const std::string path = folder.empty() ? item.path : item.path.substr(folder.size() + 1);
    if (announcer.wants(path)) visit({path, item.kind});
  }
  return true;
}

}  // namespace tovrek::inspect
