#include "engine/check_relocations.h"

#include <algorithm>
#include <vector>

#include "engine/architectures.h"
#include "engine/command_walk.h"
#include "engine/dyld_opcodes.h"
#include "engine/engine_text.h"
#include "engine/relocations.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr size_t kSymbolNumbers = size_t{1} << 24;  // r_symbolnum has 24 bits
constexpr uint32_t kPlainPointer = 0;               // the relocation type that is 0 everywhere

template <class Arch>
constexpr bool kHasRelocations = Arch::kCpuType != arm64::kCpuType;

// The only architecture whose loader patches code.
template <class Arch>
constexpr bool kAllowsTextRelocations = Arch::kCpuType == x86::kCpuType;

template <class P>
constexpr uint32_t kPointerLengthCode = P::kPointerSize == 8 ? 3 : 2;

// What entries are held against.
struct RelocationPlaces {
  uint64_t base;
  IntervalSet::Lookup writable;
};

// Whether one of the sorted addresses lies in [start, start + size).
bool hasTextRelocInRange(const std::vector<uint64_t>& sorted, uint64_t start, uint64_t size) {
  const auto first = std::ranges::lower_bound(sorted, start);
  return first != sorted.end() && *first - start < size;
}

template <class Arch>
void checkExternalReloation(const macho_relocation_info<typename Arch::P>& entry,
                            RelocationPlaces& places) {
  if constexpr (!kHasRelocations<Arch>) throw Errors::kExternalRelocationOnArm64;
  if (entry.r_length() != kPointerLengthCode<Arch>) throwf("bad external relocation length");
  if (entry.r_type() != kPlainPointer) throwf("unknown external relocation type");
  if (entry.r_pcrel() != 0) throwf("bad external relocation pc_rel");
  if (entry.r_extern() == 0) throwf("local relocation found with external relocations");
  if (!places.writable.holds(places.base + uint32_t{entry.r_address})) {
    throwf("external relocation address not in writable segment");
  }
}

template <class Arch>
void checkLocalReloation(const macho_relocation_info<typename Arch::P>& entry,
                         RelocationPlaces& places) {
  if constexpr (!kHasRelocations<Arch>) throw Errors::kLocalRelocationOnArm64;
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
void checkExternalRelocations(const Image<typename Arch::P>& image, RelocationPlaces places) {
  const auto& table = *image.pointers.dynamicSymbolTable;
  if (table.nextrel == 0) return;
  // The entries of one symbol must stand together.
  std::vector<bool> seen(kSymbolNumbers);
  std::optional<uint32_t> previous;
  forEachRelocation(image, table.extreloff, table.nextrel, [&](const auto& entry) {
    checkExternalReloation<Arch>(entry, places);
    const uint32_t symbol = entry.r_symbolnum();
    if (previous == symbol) return;
    if (seen[symbol]) throw Errors::kExternalRelocationsUnsorted;
    seen[symbol] = true;
    previous = symbol;
  });
}

// The sections outside writable segments that claim to have relocations.
template <class P>
std::vector<macho_section<P>> claimants(const Image<P>& image) {
  std::vector<macho_section<P>> found;
  for (const Segment<P>& segment : image.segments) {
    if ((segment.record.initprot & VM_PROT_WRITE) != 0) continue;
    for (const macho_section<P>& section : sectionsOf(image, segment)) {
      if ((section.flags & S_ATTR_LOC_RELOC) != 0) found.push_back(section);
    }
  }
  return found;
}

// Answers where the entries apply, sorted, when that is asked for.
template <class Arch>
std::vector<uint64_t> checkLocalRelocations(const Image<typename Arch::P>& image,
                                            RelocationPlaces places, bool asked) {
  const auto& table = *image.pointers.dynamicSymbolTable;
  std::vector<uint64_t> sites;
  forEachRelocation(image, table.locreloff, table.nlocrel, [&](const auto& entry) {
    checkLocalReloation<Arch>(entry, places);
    if (asked) sites.push_back(relocatedAddress(entry, places.base));
  });
  std::ranges::sort(sites);
  return sites;
}

// Adds what rebase opcodes name in segments that are not writable: linkers of later years write
// relocations of code so. No place is fixed twice, so honest opcodes name fewer places than the
// image has bytes.
template <class P>
void addRebasedText(const Image<P>& image, std::vector<uint64_t>* sites) {
  if (!image.pointers.dyldInfo) return;
  const auto& info = *image.pointers.dyldInfo;
  uint64_t budget = image.bytes.size();
  walkRebaseOpcodes(image.bytes.sub(info.rebase_off, info.rebase_size),
                    static_cast<uint32_t>(image.segments.size()), P::kPointerSize,
                    [&](const SiteRun& run) {
                      const auto& segment = image.segments[run.segment].record;
                      if ((segment.initprot & VM_PROT_WRITE) != 0) return;
                      if (run.count > budget) {
                        throwf("loader opcodes name more places than the image holds");
                      }
                      budget -= run.count;
                      uint64_t address = segment.vmaddr + run.offset;
                      for (uint64_t i = 0; i < run.count; ++i, address += run.stride) {
                        sites->push_back(static_cast<typename P::Integer>(address));
                      }
                    });
  std::ranges::sort(*sites);
}

}  // namespace

template <class Arch>
void checkRelocations(const Image<typename Arch::P>& image,
                      const SegmentFacts<typename Arch::P>& facts) {
  const auto asking = claimants(image);
  std::vector<uint64_t> sites;
  if (image.pointers.dynamicSymbolTable) {
    const RelocationPlaces places{relocBase<Arch>(image, facts),
                                  IntervalSet::Lookup(facts.writable)};
    checkExternalRelocations<Arch>(image, places);
    sites = checkLocalRelocations<Arch>(image, places, !asking.empty());
  }
  if (kAllowsTextRelocations<Arch> && !asking.empty()) addRebasedText(image, &sites);
  for (const auto& section : asking) {
    if (!hasTextRelocInRange(sites, section.addr, section.size)) {
      throwf("section {} has attribute set that it has relocs, but it has none",
             section.sectname.view());
    }
  }
}

#define TOVREK_INSTANTIATE(Arch)                                       \
  template void checkRelocations<Arch>(const Image<typename Arch::P>&, \
                                       const SegmentFacts<typename Arch::P>&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
