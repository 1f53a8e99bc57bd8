// What the system keeps about an item.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

#include "host/files.h"

namespace tovrek {

// Tells one item from all others, whatever its names.
struct ItemIdentity {
  uint64_t device = 0;
  uint64_t number = 0;
  auto operator<=>(const ItemIdentity&) const = default;
};

struct FileStatus {
  ItemKind kind = ItemKind::kOther;
  uint32_t mode = 0;  // type and permissions in one number, as Unix systems keep and archive them
  uint64_t size = 0;
  int64_t modified = 0;  // seconds since 1970
  ItemIdentity identity{};
};

// Of what a link leads to.
std::optional<FileStatus> statusOf(const std::string& path);
// Of a link itself.
std::optional<FileStatus> statusNoFollow(const std::string& path);

// Whether anything stands at the path; none, with the reason, when the system does not tell.
std::optional<bool> isThere(const std::string& path, ErrorText* error = nullptr);

// What a link leads to, as it stands there; none, with the reason, when it cannot be read.
std::optional<std::string> linkTarget(const std::string& path, ErrorText* error = nullptr);

}  // namespace tovrek
