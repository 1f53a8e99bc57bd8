// Taking packed bytes over, in pieces.
#pragma once

#include <cstdint>
#include <functional>

#include "archive/deflate.h"
#include "host/ErrorText.h"
#include "host/InputFile.h"

namespace tovrek::archive {

enum class Copied {
  kSame,     // all of it, and it unpacks to what the file holds
  kDiffers,  // not so; some was written by then
  kFailed,   // the file cannot be read, or `write` answered false; the reason is in `error`
};

// Gives deflated bytes to `write` while they unpack to the file's contents, byte by byte. Compared
// is what is written: the archive may change while it is read.
Copied copyWhileSame(Bytes packed, const InputFile& file,
                     const std::function<bool(Bytes piece)>& write, ErrorText* error);

}  // namespace tovrek::archive
