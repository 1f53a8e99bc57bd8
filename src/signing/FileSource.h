// Where code, and the files around it, are read from: the disk, or an archive that nobody unpacks.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/files.h"

namespace tovrek::signing {

inline constexpr uint64_t kAnySize = std::numeric_limits<uint64_t>::max();

// Paths are those of the source: what one method gave may be handed to another.
class FileSource {
 public:
  struct Contents {
    std::shared_ptr<const void> owner;  // keeps the bytes
    std::span<const std::byte> bytes;
    bool isMapped = false;  // from a file, so that pages may be given back
  };

  class Folder {
   public:
    virtual ~Folder() = default;
    // Hands a regular file of the folder to `take` piece by piece, by way of `room` where it needs
    // some. False when it cannot be read to its end. Called by several threads at once, each with a
    // room of its own.
    virtual bool readPieces(const std::string& below, std::span<char> room,
                            const std::function<void(std::string_view)>& take) const = 0;
  };

  virtual ~FileSource() = default;
  // The files of this machine.
  static const FileSource& disk();

  // All links resolved; none when a component is missing or leads out of the source.
  virtual std::optional<std::string> realPath(const std::string& path) const = 0;
  // What stands at the path itself, and what a link there leads to; none where nothing is.
  virtual std::optional<ItemKind> kindAt(const std::string& path) const = 0;
  virtual std::optional<ItemKind> kindBehind(const std::string& path) const = 0;
  // Whether nothing stands there, and not only nothing that could be looked at.
  virtual bool isKnownMissing(const std::string& path) const { return !kindBehind(path); }
  // What a link says; none for all else.
  virtual std::optional<std::string> linkTarget(const std::string& path) const = 0;

  // The whole of a file, through links, as one piece of memory; none, with the reason, when it
  // cannot be read.
  virtual std::optional<Contents> map(const std::string& path, ErrorText* error) const = 0;
  // The same as a text. Refuses more than `limit` bytes.
  virtual bool read(const std::string& path, std::string* contents, uint64_t limit = kAnySize,
                    ErrorText* error = nullptr) const = 0;
  // A folder of which many files are read. The source must outlive it.
  virtual std::unique_ptr<Folder> folder(const std::string& path) const = 0;
  // As walkDirectory() does.
  virtual bool walk(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
                    ErrorText* error) const = 0;
};

}  // namespace tovrek::signing
