// The extra fields of an entry: records of a kind, a length and that many bytes.
#pragma once

#include "archive/zip_records.h"

namespace tovrek::archive {

struct ExtraField {
  uint16_t kind = 0;
  Bytes contents{};
  Bytes whole{};  // with kind and length
};

// Calls `use` for each field until it answers false. False when a field is longer than what is
// there; a rest too short for a field is left.
template <class Use>
bool forEachExtraField(Bytes extra, const Use& use) {
  constexpr size_t kHeader = 4;
  while (extra.size() >= kHeader) {
    const size_t length = numberAt<uint16_t>(extra, 2);
    if (length > extra.size() - kHeader) return false;
    const ExtraField field{numberAt<uint16_t>(extra, 0), extra.subspan(kHeader, length),
                           extra.first(kHeader + length)};
    if (!use(field)) break;
    extra = extra.subspan(kHeader + length);
  }
  return true;
}

}  // namespace tovrek::archive
