// The entries of an archive, as a tree. Nothing is written to the disk: an entry is unpacked into
// memory when it is asked for.
#include <fmt/format.h>

#include "archive/deflate.h"
#include "archive/limits.h"
#include "inspect/Tree.h"

namespace tovrek::inspect {
namespace {

using archive::ArchiveReader;
using archive::Entry;

// Whether the name stays below the folder that an archive is unpacked to.
bool staysInside(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.find('\0') != std::string_view::npos) {
    return false;
  }
  while (!name.empty()) {
    const size_t end = std::min(name.find('/'), name.size());
    const std::string_view part = name.substr(0, end);
    if (part.empty() || part == "." || part == "..") return false;
    name.remove_prefix(std::min(end + 1, name.size()));
  }
  return true;
}

class ArchiveTree : public Tree {
 public:
  bool open(const std::string& path, ErrorText* error) {
    return take(reader_.open(path, error), error);
  }
  bool openBytes(Contents archive, ErrorText* error) {
    archive_ = std::move(archive);
    return take(reader_.openBytes(archive_.bytes(), error), error);
  }

  bool isPacked() const override { return true; }

 protected:
  std::optional<Contents> contentsOf(const Item& item, ErrorText* error) const override {
    const Entry& entry = reader_.entries()[item.index];
    const auto packed = reader_.packed(entry);
    if (entry.isEncrypted()) {
      fail(error, "it is encrypted with a password");
      return std::nullopt;
    }
    if (entry.method == archive::kStored) return checked(entry, nullptr, packed, error);
    if (entry.method != archive::kDeflated) {
      fail(error, fmt::format("it is packed by method {}", entry.method));
      return std::nullopt;
    }
    const auto room = std::make_shared<archive::Buffer>(entry.size);
    const auto target = room->bytes();
    if (target.size() != entry.size) {
      fail(error, "there is not enough memory");
      return std::nullopt;
    }
    if (!archive::Inflater().inflate(packed, target)) {
      fail(error, "its packed bytes are damaged");
      return std::nullopt;
    }
    return checked(entry, room, target, error);
  }

 private:
  static std::optional<Contents> checked(const Entry& entry, std::shared_ptr<const void> owner,
                                         std::span<const std::byte> bytes, ErrorText* error) {
    if (bytes.size() == entry.size && archive::crcOf(bytes) == entry.crc) {
      return Contents(std::move(owner), bytes);
    }
    fail(error, "its checksum in the archive does not fit");
    return std::nullopt;
  }

  bool take(ArchiveReader::Opened opened, ErrorText* error) {
    if (opened != ArchiveReader::Opened::kDone) {
      if (error != nullptr && !error->isSet()) fail(error, "it is no archive, or one cut short");
      return false;
    }
    std::vector<const Entry*> entries;
    for (const Entry& entry : reader_.entries()) entries.push_back(&entry);
    if (!archive::isWithin(limitsInForce(), entries, error)) return false;
    for (size_t i = 0; i < reader_.entries().size(); ++i) {
      const Entry& entry = reader_.entries()[i];
      std::string_view name = entry.name;
      if (entry.isFolder()) name.remove_suffix(1);
      if (!staysInside(name)) {
        stray_.push_back(entry.name);
      } else if (!entry.isFolder()) {
        items_.push_back({.path = entry.name,
                          .kind = entry.isLink() ? ItemKind::kLink : ItemKind::kFile,
                          .permissions = entry.unixMode() & 07777,
                          .size = entry.size,
                          .index = i});
      }
    }
    finish();
    return true;
  }

  Contents archive_;
  ArchiveReader reader_;
};

}  // namespace

std::unique_ptr<Tree> openArchive(const std::string& path, ErrorText* error) {
  auto tree = std::make_unique<ArchiveTree>();
  if (!tree->open(path, error)) return nullptr;
  return tree;
}

std::unique_ptr<Tree> openArchive(Contents archive, ErrorText* error) {
  auto tree = std::make_unique<ArchiveTree>();
  if (!tree->openBytes(std::move(archive), error)) return nullptr;
  return tree;
}

}  // namespace tovrek::inspect
