#include "engine/check_init_terms.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "engine/CoveredRanges.h"
#include "engine/MachORebuildErrors.h"
#include "engine/engine_text.h"
#include "engine/fixup_sites.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

// One section after another. Sections may overlap; no pointer is looked at twice.
template <class P>
class InitTermCheck {
 public:
  InitTermCheck(const Image<P>& image, const SegmentFacts<P>& facts, uint64_t relocationBase)
      : image_(image),
        facts_(facts),
        relocationBase_(relocationBase),
        isMoved_(image.header.filetype != MH_EXECUTE || (image.header.flags & MH_PIE) != 0) {}

  void check(const macho_section<P>& section) {
    const std::string_view kind = initTermKind(section.flags);
    if (kind.empty()) return;
    checkPlace(section);
    // Chains hide the pointers' targets too; opcodes need not be read before the targets.
    if (image_.pointers.chainedFixups && !sites_ && !unknownChains_) {
      sites_ = collectChainedSites(image_, facts_);
      unknownChains_ = !sites_;
    }
    if (unknownChains_) return;
    checkTargets(section, kind);
    if (!isMoved_) return;
    if (!sites_) sites_ = collectFixupSites(image_, relocationBase_);
    checkSites(section, kind);
  }

 private:
  static constexpr uint32_t kPointerSize = P::kPointerSize;

  static void checkPlace(const macho_section<P>& section) {
    const std::string_view name = section.sectname.view();
    if (section.size % kPointerSize != 0) {
      throwf("{} section size is not an even multiple of element size", name);
    }
    if (section.addr % kPointerSize != 0) {
      throwf("{} section size is not pointer size aligned", name);
    }
  }

  void checkTargets(const macho_section<P>& section, std::string_view kind) {
    const uint64_t offset = section.offset;
    CoveredRanges& done = targetsDone_[offset % kPointerSize];
    done.cover(offset, endOf(offset, section.size), [&](uint64_t at, uint64_t end) {
      for (; at < end; at += kPointerSize) {
        const std::optional<uint64_t> target = targetAt(at, section.addr + (at - offset));
        if (target && !isInside(*target, facts_.text->vmaddr, facts_.text->vmsize)) {
          throwf("{} 0x{:08X} points outside __TEXT segment", kind, *target);
        }
      }
    });
  }

  // Where the pointer leads that lies here in the file and there in memory; none for a bound one.
  std::optional<uint64_t> targetAt(uint64_t offset, uint64_t address) const {
    typename P::Address stored;
    // Possible where a segment without file data claims to hold the section.
    if (!image_.bytes.read(offset, &stored)) throw MachORebuildErrors::kSectionOffset;
    if (!sites_) return stored;
    const auto site = std::ranges::lower_bound(sites_->chained, address, {}, &ChainedSite::address);
    if (site == sites_->chained.end() || site->address != address) return stored;
    if (site->bound) return std::nullopt;
    return site->target;
  }

  void checkSites(const macho_section<P>& section, std::string_view kind) {
    const auto sectionEnd = static_cast<typename P::Integer>(section.addr + section.size);
    sitesDone_.cover(section.addr, sectionEnd, [&](uint64_t at, uint64_t end) {
      for (; at < end; at += kPointerSize) {
        if (std::ranges::binary_search(sites_->bound, at)) {
          throwf("{} at 0x{:X} has binding to external symbol", kind, at);
        }
        if (!std::ranges::binary_search(sites_->rebased, at)) {
          throwf("{} at 0x{:X} is not rebased", kind, at);
        }
      }
    });
  }

  const Image<P>& image_;
  const SegmentFacts<P>& facts_;
  const uint64_t relocationBase_;
  const bool isMoved_;  // the loader slides it
  std::optional<FixupSites> sites_;
  bool unknownChains_ = false;
  std::array<CoveredRanges, kPointerSize> targetsDone_;  // pointers are read at any alignment
  CoveredRanges sitesDone_;
};

}  // namespace

template <class P>
void checkInitTerms(const Image<P>& image, const SegmentFacts<P>& facts, uint64_t relocationBase) {
  InitTermCheck<P> check(image, facts, relocationBase);
  for (const macho_section<P>& section : image.sections) check.check(section);
}

#define TOVREK_INSTANTIATE(P) \
  template void checkInitTerms<P>(const Image<P>&, const SegmentFacts<P>&, uint64_t);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
