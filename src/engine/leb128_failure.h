// The engine's words for variable-length numbers that cannot be read.
#pragma once

#include "engine/engine_text.h"
#include "macho/leb128.h"

namespace tovrek::macho {

[[noreturn]] inline void throwUnsignedFailure(Leb128 status) {
  if (status == Leb128::kCutOff) throwf("malformed uleb128 extends beyond trie");
  throwf("uleb128 too big for 64-bits");
}

[[noreturn]] inline void throwSignedFailure(Leb128 status) {
  if (status == Leb128::kCutOff) throwf("malformed sleb128");
  throwf("sleb128 too big for 64-bits");
}

}  // namespace tovrek::macho
