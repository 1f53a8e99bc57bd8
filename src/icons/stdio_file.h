// A standard C stream that closes itself.
#pragma once

#include <cstdio>
#include <memory>

namespace tovrek {

struct StdioCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using StdioFile = std::unique_ptr<std::FILE, StdioCloser>;

}  // namespace tovrek
