// Lists of functions that the loader calls at start and end: the pointers must lead into the code
// and must be slid with it.
#include <algorithm>
#include <array>
#include <type_traits>

#include "engine/MachOChecker.h"
#include "engine/dyld_opcodes.h"
#include "engine/engine_text.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

std::string_view kindOf(uint32_t sectionFlags) {
  switch (sectionFlags & SECTION_TYPE_MASK) {
    case S_MOD_INIT_FUNC_POINTERS:
      return "initializer";
    case S_MOD_TERM_FUNC_POINTERS:
      return "terminator";
    default:
      return {};
  }
}

// Picks out the places in `wanted`. The loader fixes no place twice, so honest opcodes name fewer
// places than the image has bytes; others would keep us busy for ever.
class SiteCollector {
 public:
  SiteCollector(const IntervalSet& wanted, uint64_t budget, std::vector<uint64_t>* out)
      : wanted_(wanted), budget_(budget), out_(out) {}

  void add(uint64_t address) {
    if (wanted_.holds(address)) out_->push_back(address);
  }
  template <class Integer>
  void addRun(uint64_t address, const SiteRun& run) {
    if (run.count > budget_) throwf("loader opcodes name more places than the image holds");
    budget_ -= run.count;
    for (uint64_t i = 0; i < run.count; ++i, address += run.stride) {
      add(static_cast<Integer>(address));
    }
  }

 private:
  IntervalSet::Lookup wanted_;
  uint64_t budget_;
  std::vector<uint64_t>* out_;
};

}  // namespace

// The addresses of all initialiser and terminator pointers.
template <class Arch>
IntervalSet MachOChecker<Arch>::initTermPlaces() const {
  IntervalSet wanted;
  CoveredRanges known;  // sections may overlap
  for (const SectionInfo& info : sections_) {
    if (kindOf(info.record.flags).empty()) continue;
    const uint64_t start = info.record.addr;
    known.cover(start, endOf(start, info.record.size),
                [&](uint64_t from, uint64_t to) { wanted.add(from, to - from); });
  }
  return wanted;
}

// Chains take the place of all else that names places, as they do for the loader. None when their
// form is not known: nothing can be said of the pointers then.
template <class Arch>
std::optional<typename MachOChecker<Arch>::FixupSites> MachOChecker<Arch>::collectChainedSites()
    const {
  FixupSites sites;
  if constexpr (!std::is_same_v<typename P::Order, LittleEndian>) {
    return std::nullopt;  // there are no chains of another byte order
  }
  const IntervalSet places = initTermPlaces();
  IntervalSet::Lookup wanted(places);
  std::vector<ChainedSegment> segments;
  for (const Segment& each : segments_) {
    segments.push_back({each.vmaddr, each.fileoff, each.filesize});
  }
  const auto& table = *pointers_.chainedFixups;
  const bool known =
      walkChainedFixups(image_, image_.sub(table.dataoff, table.datasize), segments,
                        textSegment_->vmaddr, [&](const ChainedSite& site) {
                          if (!wanted.holds(site.address)) return;
                          (site.bound ? sites.bound : sites.rebased).push_back(site.address);
                          sites.chained.push_back(site);
                        });
  if (!known) return std::nullopt;
  std::ranges::sort(sites.rebased);
  std::ranges::sort(sites.bound);
  std::ranges::sort(sites.chained, {}, &ChainedSite::address);
  return sites;
}

template <class Arch>
typename MachOChecker<Arch>::FixupSites MachOChecker<Arch>::collectFixupSites() const {
  const IntervalSet wanted = initTermPlaces();
  FixupSites sites;
  SiteCollector rebased(wanted, image_.size(), &sites.rebased);
  SiteCollector bound(wanted, image_.size(), &sites.bound);

  if (pointers_.dynamicSymbolTable) {
    const auto& table = *pointers_.dynamicSymbolTable;
    const uint64_t base = relocBase();
    forEachRelocation(table.locreloff, table.nlocrel,
                      [&](const Relocation& entry) { rebased.add(relocatedAddress(entry, base)); });
    forEachRelocation(table.extreloff, table.nextrel,
                      [&](const Relocation& entry) { bound.add(relocatedAddress(entry, base)); });
  }
  if (pointers_.dyldInfo) {
    const auto& info = *pointers_.dyldInfo;
    const auto segmentCount = static_cast<uint32_t>(segments_.size());
    const auto collectInto = [this](SiteCollector& collector) {
      return [this, &collector](const SiteRun& run) {
        collector.addRun<typename P::Integer>(segments_[run.segment].vmaddr + run.offset, run);
      };
    };
    walkRebaseOpcodes(image_.sub(info.rebase_off, info.rebase_size), segmentCount, kPointerSize,
                      collectInto(rebased));
    walkBindOpcodes(image_.sub(info.bind_off, info.bind_size), segmentCount, kPointerSize,
                    collectInto(bound));
  }
  std::ranges::sort(sites.rebased);
  std::ranges::sort(sites.bound);
  return sites;
}

template <class Arch>
void MachOChecker<Arch>::checkInitTermTargets(const SectionInfo& section, std::string_view kind,
                                              std::span<const ChainedSite> chained,
                                              CoveredRanges& done) const {
  const uint64_t offset = section.record.offset;
  done.cover(offset, endOf(offset, section.record.size), [&](uint64_t at, uint64_t end) {
    for (; at < end; at += kPointerSize) {
      typename P::Address stored;
      // Possible where a segment without file data claims to hold the section.
      if (!image_.read(at, &stored)) throw MachORebuildErrors::kSectionOffset;
      uint64_t target = stored;
      const uint64_t address = section.record.addr + (at - offset);
      const auto site = std::ranges::lower_bound(chained, address, {}, &ChainedSite::address);
      if (site != chained.end() && site->address == address) {
        if (site->bound) continue;
        target = site->target;
      }
      if (!isInside(target, textSegment_->vmaddr, textSegment_->vmsize)) {
        throwf("{} 0x{:08X} points outside __TEXT segment", kind, target);
      }
    }
  });
}

template <class Arch>
void MachOChecker<Arch>::checkInitTermSites(const SectionInfo& section, std::string_view kind,
                                            const FixupSites& sites, CoveredRanges& done) const {
  const auto sectionEnd =
      static_cast<typename P::Integer>(section.record.addr + section.record.size);
  done.cover(section.record.addr, sectionEnd, [&](uint64_t at, uint64_t end) {
    for (; at < end; at += kPointerSize) {
      if (std::ranges::binary_search(sites.bound, at)) {
        throwf("{} at 0x{:X} has binding to external symbol", kind, at);
      }
      if (!std::ranges::binary_search(sites.rebased, at)) {
        throwf("{} at 0x{:X} is not rebased", kind, at);
      }
    }
  });
}

template <class Arch>
void MachOChecker<Arch>::checkInitTerms() const {
  std::optional<FixupSites> sites;
  bool unknownChains = false;
  // Sections may overlap; no pointer is looked at twice. Pointers are read at any alignment.
  std::array<CoveredRanges, kPointerSize> targetsDone;
  CoveredRanges sitesDone;
  for (const SectionInfo& section : sections_) {
    const std::string_view kind = kindOf(section.record.flags);
    if (kind.empty()) continue;
    const std::string_view name = section.record.sectname.view();
    if (section.record.size % kPointerSize != 0) {
      throwf("{} section size is not an even multiple of element size", name);
    }
    if (section.record.addr % kPointerSize != 0) {
      throwf("{} section size is not pointer size aligned", name);
    }
    // Chains hide the pointers' targets too; opcodes need not be read before the targets.
    if (pointers_.chainedFixups && !sites && !unknownChains) {
      sites = collectChainedSites();
      unknownChains = !sites;
    }
    if (unknownChains) continue;
    const auto chained =
        sites ? std::span<const ChainedSite>(sites->chained) : std::span<const ChainedSite>();
    checkInitTermTargets(section, kind, chained, targetsDone[section.record.offset % kPointerSize]);
    if (!positionIndependentOrLibrary_) continue;
    if (!sites) sites = collectFixupSites();
    checkInitTermSites(section, kind, *sites, sitesDone);
  }
}

#define TOVREK_INSTANTIATE(Arch)                                                                 \
  template MachOChecker<Arch>::FixupSites MachOChecker<Arch>::collectFixupSites() const;         \
  template IntervalSet MachOChecker<Arch>::initTermPlaces() const;                               \
  template std::optional<typename MachOChecker<Arch>::FixupSites>                                \
  MachOChecker<Arch>::collectChainedSites() const;                                               \
  template void MachOChecker<Arch>::checkInitTermTargets(                                        \
      const SectionInfo&, std::string_view, std::span<const ChainedSite>, CoveredRanges&) const; \
  template void MachOChecker<Arch>::checkInitTermSites(const SectionInfo&, std::string_view,     \
                                                       const FixupSites&, CoveredRanges&) const; \
  template void MachOChecker<Arch>::checkInitTerms() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
