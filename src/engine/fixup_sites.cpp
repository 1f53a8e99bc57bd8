#include "engine/fixup_sites.h"

#include <algorithm>
#include <type_traits>

#include "engine/CoveredRanges.h"
#include "engine/dyld_opcodes.h"
#include "engine/engine_text.h"
#include "engine/relocations.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

// The addresses of all initialiser and terminator pointers.
template <class P>
IntervalSet initTermPlaces(const Image<P>& image) {
  IntervalSet wanted;
  CoveredRanges known;  // sections may overlap
  for (const macho_section<P>& section : image.sections) {
    if (initTermKind(section.flags).empty()) continue;
    known.cover(section.addr, endOf(section.addr, section.size),
                [&](uint64_t from, uint64_t to) { wanted.add(from, to - from); });
  }
  return wanted;
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

template <class P>
void collectRelocated(const Image<P>& image, uint64_t base, SiteCollector* rebased,
                      SiteCollector* bound) {
  if (!image.pointers.dynamicSymbolTable) return;
  const auto& table = *image.pointers.dynamicSymbolTable;
  forEachRelocation(image, table.locreloff, table.nlocrel,
                    [&](const auto& entry) { rebased->add(relocatedAddress(entry, base)); });
  forEachRelocation(image, table.extreloff, table.nextrel,
                    [&](const auto& entry) { bound->add(relocatedAddress(entry, base)); });
}

template <class P>
void collectByOpcodes(const Image<P>& image, SiteCollector* rebased, SiteCollector* bound) {
  if (!image.pointers.dyldInfo) return;
  const auto& info = *image.pointers.dyldInfo;
  const auto segmentCount = static_cast<uint32_t>(image.segments.size());
  const auto collectInto = [&](SiteCollector* collector) {
    return [&image, collector](const SiteRun& run) {
      const uint64_t start = image.segments[run.segment].record.vmaddr;
      collector->addRun<typename P::Integer>(start + run.offset, run);
    };
  };
  walkRebaseOpcodes(image.bytes.sub(info.rebase_off, info.rebase_size), segmentCount,
                    P::kPointerSize, collectInto(rebased));
  walkBindOpcodes(image.bytes.sub(info.bind_off, info.bind_size), segmentCount, P::kPointerSize,
                  collectInto(bound));
}

}  // namespace

std::string_view initTermKind(uint32_t sectionFlags) {
  switch (sectionFlags & SECTION_TYPE_MASK) {
    case S_MOD_INIT_FUNC_POINTERS:
      return "initializer";
    case S_MOD_TERM_FUNC_POINTERS:
      return "terminator";
    default:
      return {};
  }
}

template <class P>
std::optional<FixupSites> collectChainedSites(const Image<P>& image, const SegmentFacts<P>& facts) {
  FixupSites sites;
  if constexpr (!std::is_same_v<typename P::Order, LittleEndian>) {
    return std::nullopt;  // there are no chains of another byte order
  }
  const IntervalSet places = initTermPlaces(image);
  IntervalSet::Lookup wanted(places);
  std::vector<ChainedSegment> segments;
  for (const Segment<P>& each : image.segments) {
    segments.push_back({each.record.vmaddr, each.record.fileoff, each.record.filesize});
  }
  const auto& table = *image.pointers.chainedFixups;
  const auto collect = [&](const ChainedSite& site) {
    if (!wanted.holds(site.address)) return;
    (site.bound ? sites.bound : sites.rebased).push_back(site.address);
    sites.chained.push_back(site);
  };
  switch (walkChains(image.bytes, image.bytes.sub(table.dataoff, table.datasize), segments,
                     facts.text->vmaddr, collect)) {
    case ChainWalk::kDone:
      break;
    case ChainWalk::kUnknownForm:
      return std::nullopt;
    case ChainWalk::kDamaged:
      throw MachORebuildErrors::kUnknownCommand;
  }
  std::ranges::sort(sites.rebased);
  std::ranges::sort(sites.bound);
  std::ranges::sort(sites.chained, {}, &ChainedSite::address);
  return sites;
}

template <class P>
FixupSites collectFixupSites(const Image<P>& image, uint64_t relocationBase) {
  const IntervalSet wanted = initTermPlaces(image);
  FixupSites sites;
  SiteCollector rebased(wanted, image.bytes.size(), &sites.rebased);
  SiteCollector bound(wanted, image.bytes.size(), &sites.bound);
  collectRelocated(image, relocationBase, &rebased, &bound);
  collectByOpcodes(image, &rebased, &bound);
  std::ranges::sort(sites.rebased);
  std::ranges::sort(sites.bound);
  return sites;
}

#define TOVREK_INSTANTIATE(P)                                                        \
  template std::optional<FixupSites> collectChainedSites<P>(const Image<P>&,         \
                                                            const SegmentFacts<P>&); \
  template FixupSites collectFixupSites<P>(const Image<P>&, uint64_t);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
