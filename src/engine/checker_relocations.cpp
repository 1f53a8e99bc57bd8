// Relocation entries of images that are not adjusted by loader opcodes.
#include <algorithm>

#include "engine/MachOChecker.h"
#include "engine/engine_text.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr size_t kSymbolNumbers = size_t{1} << 24;  // r_symbolnum has 24 bits
constexpr uint32_t kPlainPointer = 0;               // the relocation type that is 0 everywhere

// The only architecture whose loader patches code.
template <class Arch>
constexpr bool kAllowsTextRelocations = Arch::kCpuType == x86::kCpuType;

template <class Arch>
constexpr uint32_t kPointerLengthCode = Arch::kPointerSize == 8 ? 3 : 2;

// Whether one of the sorted addresses lies in [start, start + size).
bool hasTextRelocInRange(const std::vector<uint64_t>& sorted, uint64_t start, uint64_t size) {
  const auto first = std::ranges::lower_bound(sorted, start);
  return first != sorted.end() && *first - start < size;
}

}  // namespace

template <class Arch>
uint64_t MachOChecker<Arch>::relocBase() const {
  if constexpr (kHasRelocations) {
    constexpr RelocationBase kRule = Arch::kRelocationBase;
    const bool split = (header_.flags & MH_SPLIT_SEGS) != 0;
    const bool writable = kRule == RelocationBase::kWritable ||
                          (kRule == RelocationBase::kFirstUnlessSplit && split) ||
                          (kRule == RelocationBase::kWritableWhenHigh && (split || highBase_));
    if (writable) return firstWritable_ ? uint64_t{segments_[*firstWritable_].vmaddr} : 0;
  }
  return segments_.empty() ? 0 : uint64_t{segments_.front().vmaddr};
}

template <class Arch>
void MachOChecker<Arch>::checkExternalReloation(const Relocation& entry,
                                                RelocationPlaces& places) const {
  if constexpr (!kHasRelocations) throw Errors::kExternalRelocationOnArm64;
  if (entry.r_length() != kPointerLengthCode<Arch>) throwf("bad external relocation length");
  if (entry.r_type() != kPlainPointer) throwf("unknown external relocation type");
  if (entry.r_pcrel() != 0) throwf("bad external relocation pc_rel");
  if (entry.r_extern() == 0) throwf("local relocation found with external relocations");
  if (!places.writable.holds(places.base + uint32_t{entry.r_address})) {
    throwf("external relocation address not in writable segment");
  }
}

template <class Arch>
void MachOChecker<Arch>::checkLocalReloation(const Relocation& entry,
                                             RelocationPlaces& places) const {
  if constexpr (!kHasRelocations) throw Errors::kLocalRelocationOnArm64;
  if constexpr (requires { Arch::kScatteredPointerType; }) {
    if (entry.isScattered()) {
      if (entry.scatteredLength() != kPointerLengthCode<Arch>) throw Errors::kLocalScatteredLength;
      if (entry.scatteredType() != Arch::kScatteredPointerType) {
        throw Errors::kLocalScatteredType;
      }
      return;
    }
  }
  if (entry.r_length() != kPointerLengthCode<Arch>) throw Errors::kLocalLength;
  if (entry.r_type() != kPlainPointer) throw Errors::kLocalType;
  if (entry.r_pcrel() != 0) throw Errors::kLocalPcRelative;
  if (entry.r_extern() != 0) throw Errors::kLocalExtern;
  if (!kAllowsTextRelocations<Arch> &&
      !places.writable.holds(relocatedAddress(entry, places.base))) {
    throw Errors::kLocalRelocationTarget;
  }
}

template <class Arch>
void MachOChecker<Arch>::checkExternalRelocations() const {
  const auto& table = *pointers_.dynamicSymbolTable;
  if (table.nextrel == 0) return;
  // The entries of one symbol must stand together.
  std::vector<bool> seen(kSymbolNumbers);
  std::optional<uint32_t> previous;
  RelocationPlaces places(*this);
  forEachRelocation(table.extreloff, table.nextrel, [&](const Relocation& entry) {
    checkExternalReloation(entry, places);
    const uint32_t symbol = entry.r_symbolnum();
    if (previous == symbol) return;
    if (seen[symbol]) throw Errors::kExternalRelocationsUnsorted;
    seen[symbol] = true;
    previous = symbol;
  });
}

template <class Arch>
bool MachOChecker<Arch>::claimsTextRelocations(const SectionInfo& info) {
  return !info.writable && (info.record.flags & S_ATTR_LOC_RELOC) != 0;
}

// The sites are gathered only where a section asks for them.
template <class Arch>
void MachOChecker<Arch>::checkLocalRelocations(std::vector<uint64_t>* sites) const {
  const auto& table = *pointers_.dynamicSymbolTable;
  const bool asked = std::ranges::any_of(sections_, claimsTextRelocations);
  RelocationPlaces places(*this);
  forEachRelocation(table.locreloff, table.nlocrel, [&](const Relocation& entry) {
    checkLocalReloation(entry, places);
    if (asked) sites->push_back(relocatedAddress(entry, places.base));
  });
  std::ranges::sort(*sites);
}

template <class Arch>
void MachOChecker<Arch>::checkRelocations() const {
  std::vector<uint64_t> sites;
  if (pointers_.dynamicSymbolTable) {
    checkExternalRelocations();
    checkLocalRelocations(&sites);
  }
  for (const SectionInfo& info : sections_) {
    const Section& section = info.record;
    if (!claimsTextRelocations(info)) continue;
    if (!hasTextRelocInRange(sites, section.addr, section.size)) {
      throwf("section {} has attribute set that it has relocs, but it has none",
             section.sectname.view());
    }
  }
}

#define TOVREK_INSTANTIATE(Arch)                           \
  template uint64_t MachOChecker<Arch>::relocBase() const; \
  template void MachOChecker<Arch>::checkRelocations() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
