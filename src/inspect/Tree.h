// The files of an input, whether they lie in a folder or in an archive.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archive/ArchiveReader.h"
#include "host/ErrorText.h"
#include "host/files.h"

namespace tovrek::inspect {

// Bytes with whatever keeps them: a mapping, or memory that they were unpacked into.
class Contents {
 public:
  Contents() = default;
  Contents(std::shared_ptr<const void> owner, std::span<const std::byte> bytes)
      : owner_(std::move(owner)), bytes_(bytes) {}
  std::span<const std::byte> bytes() const { return bytes_; }
  std::string_view text() const;
  const std::shared_ptr<const void>& owner() const { return owner_; }

 private:
  std::shared_ptr<const void> owner_;
  std::span<const std::byte> bytes_;
};

// The most bytes of one file, and of all that one tree unpacks, anew each time that it is read: a
// small archive may claim more than any machine holds.
inline constexpr uint64_t kLargestItem = uint64_t{1} << 30;
inline constexpr uint64_t kMostUnpacked = uint64_t{16} << 30;
// What is kept of the files that were read and may be asked for again.
inline constexpr uint64_t kMostKept = uint64_t{64} << 20;
// The most bytes of a property list, profile or manifest.
inline constexpr uint64_t kLargestDocument = uint64_t{16} << 20;

class Tree {
 public:
  struct Item {
    std::string path{};  // from the root, parted by "/"
    ItemKind kind = ItemKind::kFile;
    uint32_t permissions = 0;  // 0 where the archive does not tell
    uint64_t size = 0;
    size_t index = 0;  // for the tree itself
  };

  virtual ~Tree() = default;
  Tree() = default;
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  // Files, links and what is neither, sorted by the bytes of their paths. Folders are known by
  // what lies in them.
  const std::vector<Item>& items() const { return items_; }
  // The items below a folder; all of them for "".
  std::span<const Item> below(std::string_view folder) const;
  const Item* find(std::string_view path) const;
  bool holdsFolder(std::string_view path) const { return !below(path).empty(); }

  // The contents of a file, or the target of a link; links are never followed. None, with the
  // reason, for other kinds, for more than `limit` bytes, and for what cannot be read. May be
  // called from several threads.
  std::optional<Contents> read(const Item& item, uint64_t limit = kLargestItem,
                               ErrorText* error = nullptr) const;
  // The same by path; none also when there is no such file.
  std::optional<Contents> read(std::string_view path, uint64_t limit = kLargestItem,
                               ErrorText* error = nullptr) const;

  // The same for what is asked for several times, such as code: some of what was read last is kept.
  std::optional<Contents> readAndKeep(const Item& item, ErrorText* error = nullptr) const;

  // Reads what was not read yet, and tells of each file that cannot be had.
  void readTheRest(const std::function<void(const Item&, const std::string& reason)>& tell) const;

  // Names that were left out because they lead out of the tree, stand there twice, or lie behind
  // a file or link.
  const std::vector<std::string>& strayNames() const { return stray_; }
  // Whether the tree comes out of an archive, where links and modes are claims of its maker.
  virtual bool isPacked() const = 0;

 protected:
  virtual std::optional<Contents> contentsOf(const Item& item, ErrorText* error) const = 0;
  // Brings the items into order; the first of several with one path stays.
  void finish();
  // Whether a file or link stands where the item needs a folder.
  bool isBlocked(const Item& item) const;

  std::vector<Item> items_;
  std::vector<std::string> stray_;

 private:
  mutable std::atomic<uint64_t> unpacked_{0};
  mutable std::mutex keeping_;
  mutable std::deque<std::pair<const Item*, Contents>> kept_;  // the oldest first
  mutable std::vector<std::atomic<bool>> isSound_;             // by item: was read once
};

// The tree of a folder. Null, with the reason, when it cannot be listed.
std::unique_ptr<Tree> openFolder(const std::string& path, ErrorText* error);
// The tree of an archive: a file, or bytes that must outlive the tree. Null, with the reason, for
// what is no sound archive.
std::unique_ptr<Tree> openArchive(const std::string& path, ErrorText* error);
std::unique_ptr<Tree> openArchive(Contents archive, ErrorText* error);

}  // namespace tovrek::inspect
