// Where a load command goes into an image, and how much room there is. Nothing is changed here.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/LibraryPaths.h"
#include "log/WrapperLogger.h"
#include "macho/Image.h"

namespace tovrek::macho {

struct InsertionPlan {
  static constexpr uint16_t kNoOrdinal = 0xffff;

  bool alreadyThere = false;
  uint64_t insertAt = 0;
  uint64_t lastEnd = 0;           // where the walk over the commands stopped
  uint64_t limit = 0;             // where the header's room ends
  uint64_t lowest = UINT64_MAX;   // where the first data behind it starts
  uint16_t ordinal = kNoOrdinal;  // of the library, counted from 1
};

// The size of the command that loads a library.
constexpr uint32_t newCommandSize(std::string_view dylib) {
  return static_cast<uint32_t>((dylib.size() + 32) & ~uint64_t{7});
}

// Plans for a library; with `unlessPresent` there is nothing to do when the image loads it already.
// `caller` names the operation in traces. Throws MachORebuildErrors for damaged commands.
template <class P>
InsertionPlan planInsertion(const Image<P>& image, std::string_view caller, std::string_view dylib,
                            bool unlessPresent, const WrapperLogger& logger);

// Whether commands of `added` bytes fit by the built-in rules.
template <class P>
bool hasRoom(const Image<P>& image, const InsertionPlan& plan, uint64_t added);

// The strict view of the header's room: throws MachORebuildErrors unless both libraries and the
// signer's command, which follows, fit before the first data. `path` is for the log.
template <class P>
void checkHeaderRoom(const Image<P>& image, const LibraryPaths& paths, const std::string& path,
                     const WrapperLogger& logger);

}  // namespace tovrek::macho
