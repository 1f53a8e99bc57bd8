// The four ways in which images lay out their records, and the one place that tells them apart.
#pragma once

#include "macho/ByteView.h"
#include "macho/layout.h"

namespace tovrek::macho {

// Calls `visit.template operator()<P>()` with the pointer model that the magic number at the start
// of a thin image stands for. False, without a call, when there is no such number.
template <class Visitor>
bool visitModel(ByteView bytes, Visitor&& visit) {
  Stored<uint32_t, LittleEndian> magic;
  if (!bytes.read(0, &magic)) return false;
  const uint32_t number = magic;
  if (number == Pointer64<LittleEndian>::kMagic) {
    visit.template operator()<Pointer64<LittleEndian>>();
  } else if (number == Pointer32<LittleEndian>::kMagic) {
    visit.template operator()<Pointer32<LittleEndian>>();
  } else if (number == swapBytes(Pointer64<BigEndian>::kMagic)) {
    visit.template operator()<Pointer64<BigEndian>>();
  } else if (number == swapBytes(Pointer32<BigEndian>::kMagic)) {
    visit.template operator()<Pointer32<BigEndian>>();
  } else {
    return false;
  }
  return true;
}

inline bool hasThinMagic(ByteView bytes) {
  return visitModel(bytes, []<class>() {});
}

}  // namespace tovrek::macho

// `apply` names one instantiation for a pointer model.
#define TOVREK_FOR_EACH_MODEL(apply)                                       \
  apply(::tovrek::macho::Pointer32<::tovrek::macho::BigEndian>)            \
      apply(::tovrek::macho::Pointer64<::tovrek::macho::BigEndian>)        \
          apply(::tovrek::macho::Pointer32<::tovrek::macho::LittleEndian>) \
              apply(::tovrek::macho::Pointer64<::tovrek::macho::LittleEndian>)
