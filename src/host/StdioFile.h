// Reading a file as a stream, for what need not or cannot be held in memory.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

struct StdioCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using StdioFile = std::unique_ptr<std::FILE, StdioCloser>;

// Opens a regular file, through links. Null, with the reason, for anything else: an app could
// bring a pipe or a link to a device, which would block or never end.
StdioFile openRegularFile(const std::string& path, ErrorText* error = nullptr);

// A stream over bytes, which must outlive it. Null when there is no memory, and for no bytes at
// all.
StdioFile openBytes(std::string_view bytes);

// Reads a regular file to its end, each time as much as fits into the room that `room` offers (at
// least a byte); `took` is told how many bytes came. False when it cannot be read to its end; some
// may have come by then.
bool readInPieces(const std::string& path, const std::function<std::span<char>()>& room,
                  const std::function<void(size_t)>& took, ErrorText* error = nullptr);

}  // namespace tovrek
