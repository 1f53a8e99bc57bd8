// Files and folders: questions, whole-file reads and writes, copies, sorted listings.
// Failures put the system's own description ("No such file or directory") into the slot; the
// caller words the message around it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

// --- Questions. Links are followed, except by isSymbolicLink and itemExistsNoFollow. ---
bool fileExists(const std::string& path);
bool isDirectory(const std::string& path);
// Exists and is not a folder.
bool isPlainFile(const std::string& path);
bool isSymbolicLink(const std::string& path);
// True also for a link that points nowhere.
bool itemExistsNoFollow(const std::string& path);
bool isWritable(const std::string& path);
bool isExecutable(const std::string& path);
// A folder of this user alone; never a link to one.
bool isPrivateDirectory(const std::string& path);
// Size in bytes as stat gives it; none when there is no such item.
std::optional<uint64_t> fileSize(const std::string& path);
// Permission bits as stat gives them; none when there is no such item.
std::optional<uint32_t> fileMode(const std::string& path);
// When the contents changed last, in seconds since 1970; none when there is no such item.
std::optional<int64_t> modificationTime(const std::string& path);
// The permission bits that new items do not get (the umask).
uint32_t creationMask();
// All links resolved; none when a component is missing.
std::optional<std::string> realPath(const std::string& path);

// --- Whole files. ---
bool readFile(const std::string& path, std::string* contents, ErrorText* error = nullptr);
// Temporary file in the same folder, fsync, rename. Keeps the mode of a file that stood there,
// else 0666 less the umask. Replaces a link at `path` rather than writing through it.
bool writeFileAtomically(const std::string& path, std::string_view contents,
                         ErrorText* error = nullptr);
// The same for a file made of several parts one after another, with the permission bits `mode`.
bool writeFileAtomically(const std::string& path, std::span<const std::string_view> parts,
                         uint32_t mode, ErrorText* error = nullptr);
// As the first, but a device or pipe that stands at `path` is written to: only a file can be
// replaced as a whole.
bool writeFileOrDevice(const std::string& path, std::string_view contents,
                       ErrorText* error = nullptr);
// Opens with O_APPEND and writes `text` in one call, so that lines of two programs do not mix.
// False when the file does not exist or cannot be opened.
bool appendToFile(const std::string& path, std::string_view text);

// --- Items. ---
// Makes now the time of last use and change of an item, which may be a link.
void touchItem(const std::string& path);
bool createDirectories(const std::string& path, ErrorText* error = nullptr);
// Makes one folder that only this user may enter. Fails when anything stands there.
bool createPrivateDirectory(const std::string& path, ErrorText* error = nullptr);
// Removes a file, a link (not its target) or a whole folder. A missing item is a failure.
bool removeItem(const std::string& path, ErrorText* error = nullptr);
// Copies a file or folder. Fails when anything stands at `to`. Links are copied as links, modes
// and empty folders are kept. A single file appears whole or not at all.
bool copyItem(const std::string& from, const std::string& to, ErrorText* error = nullptr);
// Renames, or copies and removes across file systems. Fails when anything stands at `to`.
bool moveItem(const std::string& from, const std::string& to, ErrorText* error = nullptr);
// copyItem for a file that is not needed any more where it is: moved, where that comes to the same,
// else copied and left there.
bool handOverItem(const std::string& from, const std::string& to, ErrorText* error = nullptr);

// --- Listings: names sorted by bytes, so that every host gives the same order. ---
// Names in the folder, without "." and ".."; none when it cannot be read.
std::optional<std::vector<std::string>> listDirectory(const std::string& path,
                                                      ErrorText* error = nullptr);

enum class ItemKind { kFile, kDirectory, kLink, kOther };
struct WalkedItem {
  std::string relativePath;  // from the root of the walk, without a leading "/"
  ItemKind kind;
};
// Depth first, a folder before its contents, links never followed below the root. `visit` answers
// whether to descend into a folder. Only a whole listing is one: false, with path and reason, as
// soon as a folder or the kind of an item cannot be read; what was visited until then was visited.
// A missing root visits nothing and is false.
bool walkDirectory(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
                   ErrorText* error = nullptr);
// The same for a folder that need not be there: a missing one has no items and is true.
bool walkDirectoryIfThere(const std::string& root,
                          const std::function<bool(const WalkedItem&)>& visit,
                          ErrorText* error = nullptr);

}  // namespace tovrek
