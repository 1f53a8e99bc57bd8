// Reading a file as a stream, for what need not or cannot be held in memory.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
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

// Gives a regular file's contents to `take`, piece by piece. False when it cannot be read to its
// end; pieces may have been given by then.
bool readInPieces(const std::string& path, const std::function<void(std::string_view)>& take,
                  ErrorText* error = nullptr);

}  // namespace tovrek
