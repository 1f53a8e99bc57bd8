#include "signing/FileSource.h"

#include "host/InputFile.h"
#include "host/ItemPath.h"
#include "host/MappedFile.h"
#include "host/file_status.h"

namespace tovrek::signing {
namespace {

class DiskFolder : public FileSource::Folder {
 public:
  explicit DiskFolder(const std::string& path) : folder_(path) {}

  bool readPieces(const std::string& below, std::span<char> room,
                  const std::function<void(std::string_view)>& take) const override {
    InputFile file;
    if (!file.openRegular(folder_, below)) return false;
    // A file that ends where its size says needs no further look.
    for (uint64_t total = 0; total < file.status().size;) {
      const auto got = file.read(room);
      if (!got) return false;
      if (*got == 0) break;
      take(std::string_view(room.data(), *got));
      total += *got;
    }
    return true;
  }

 private:
  const ItemFolder folder_;
};

class Disk : public FileSource {
 public:
  std::optional<std::string> realPath(const std::string& path) const override {
    return tovrek::realPath(path);
  }
  std::optional<ItemKind> kindAt(const std::string& path) const override {
    const auto status = statusNoFollow(path);
    return status ? std::optional(status->kind) : std::nullopt;
  }
  std::optional<ItemKind> kindBehind(const std::string& path) const override {
    const auto status = statusOf(path);
    return status ? std::optional(status->kind) : std::nullopt;
  }
  bool isKnownMissing(const std::string& path) const override {
    return isThere(path) == std::optional(false);
  }
  std::optional<std::string> linkTarget(const std::string& path) const override {
    return tovrek::linkTarget(path);
  }

  std::optional<Contents> map(const std::string& path, ErrorText* error) const override {
    auto file = std::make_shared<MappedFile>();
    if (!file->open(path, error)) return std::nullopt;
    const auto bytes = file->bytes();
    return Contents{std::move(file), bytes, true};
  }
  bool read(const std::string& path, std::string* contents, uint64_t limit,
            ErrorText* error) const override {
    const auto status = statusOf(path);
    if (status && status->size > limit) return fail(error, "it is too large");
    // A pipe would be waited for.
    if (status && status->kind != ItemKind::kFile) return fail(error, "it is no regular file");
    return readFile(path, contents, error);
  }
  std::unique_ptr<Folder> folder(const std::string& path) const override {
    return std::make_unique<DiskFolder>(path);
  }
  bool walk(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
            ErrorText* error) const override {
    return walkDirectory(root, visit, error);
  }
};

}  // namespace

const FileSource& FileSource::disk() {
  static const Disk kDisk;
  return kDisk;
}

}  // namespace tovrek::signing
