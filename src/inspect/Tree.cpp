#include "inspect/Tree.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>

#include "host/bytes.h"
#include "host/parallel.h"

namespace tovrek::inspect {

std::string_view Contents::text() const {
  return asText(bytes_);
}

std::span<const Tree::Item> Tree::below(std::string_view folder) const {
  if (folder.empty()) return items_;
  // "/" is the byte before "0": all that starts with "folder/" lies between the two.
  const std::string first = std::string(folder) + "/", end = std::string(folder) + "0";
  const auto byPath = [](const Item& item, const std::string& path) { return item.path < path; };
  const auto from = std::lower_bound(items_.begin(), items_.end(), first, byPath);
  const auto to = std::lower_bound(from, items_.end(), end, byPath);
  return {from, to};
}

const Tree::Item* Tree::find(std::string_view path) const {
  const auto at = std::lower_bound(
      items_.begin(), items_.end(), path,
      [](const Item& item, std::string_view wanted) { return item.path < wanted; });
  return at != items_.end() && at->path == path ? &*at : nullptr;
}

bool Tree::isBlocked(const Item& item) const {
  for (size_t at = item.path.find('/'); at != std::string::npos; at = item.path.find('/', at + 1)) {
    if (find(std::string_view(item.path).substr(0, at)) != nullptr) return true;
  }
  return false;
}

void Tree::finish() {
  std::ranges::stable_sort(items_, {}, &Item::path);
  std::vector<Item> kept;
  for (Item& item : items_) {
    if (!kept.empty() && kept.back().path == item.path) {
      stray_.push_back(item.path);
    } else {
      kept.push_back(std::move(item));
    }
  }
  items_ = std::move(kept);
  std::string_view folder;
  bool blocked = false;
  std::vector<bool> left;
  for (const Item& item : items_) {
    const std::string_view path = item.path;
    const std::string_view parent = path.substr(0, path.find_last_of('/') + 1);
    // Neighbours have one answer.
    if (parent != folder) blocked = isBlocked(item);
    folder = parent;
    left.push_back(blocked);
  }
  size_t index = 0;
  std::erase_if(items_, [&](Item& item) {
    const bool isLeft = left[index++];
    if (isLeft) stray_.push_back(item.path);
    return isLeft;
  });
  isSound_ = std::vector<std::atomic<bool>>(items_.size());
}

std::optional<Contents> Tree::read(const Item& item, uint64_t limit, ErrorText* error) const {
  if (item.kind == ItemKind::kOther || item.kind == ItemKind::kDirectory) {
    fail(error, "it is neither a file nor a link");
    return std::nullopt;
  }
  if (item.size > limit) {
    fail(error, fmt::format("it has {} bytes, and {} are read at most", item.size, limit));
    return std::nullopt;
  }
  if (isPacked() && unpacked_.fetch_add(item.size) + item.size > kMostUnpacked) {
    fail(error, fmt::format("the archive unpacks to more than {} bytes", kMostUnpacked));
    return std::nullopt;
  }
  auto contents = contentsOf(item, error);
  const auto index = static_cast<size_t>(&item - items_.data());
  if (contents) isSound_[index] = true;
  return contents;
}

std::optional<Contents> Tree::readAndKeep(const Item& item, ErrorText* error) const {
  const std::scoped_lock held(keeping_);
  const auto known = std::ranges::find(kept_, &item, &decltype(kept_)::value_type::first);
  if (known != kept_.end()) return known->second;
  auto contents = read(item, kLargestItem, error);
  if (!contents) return std::nullopt;
  kept_.emplace_back(&item, *contents);
  uint64_t size = 0;
  for (const auto& each : kept_) size += each.first->size;
  for (; size > kMostKept && kept_.size() > 1; kept_.pop_front()) {
    size -= kept_.front().first->size;
  }
  return contents;
}

void Tree::readTheRest(
    const std::function<void(const Item&, const std::string& reason)>& tell) const {
  std::mutex lock;
  forEachPart(items_.size(), 1, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      ErrorText reason;
      if (isSound_[i] || read(items_[i], kLargestItem, &reason)) continue;
      const std::scoped_lock held(lock);
      tell(items_[i], reason.text());
    }
  });
}

std::optional<Contents> Tree::read(std::string_view path, uint64_t limit, ErrorText* error) const {
  const Item* item = find(path);
  if (item == nullptr || item->kind != ItemKind::kFile) {
    fail(error, "there is no such file");
    return std::nullopt;
  }
  return read(*item, limit, error);
}

}  // namespace tovrek::inspect
