// Validation of one thin Mach-O image, and insertion of load commands into it.
//
// One class template for the six architectures. Its body lies in the checker_*.cpp files, one per
// concern, with explicit instantiations; nothing but declarations is compiled into users.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/AcceptanceRules.h"
#include "engine/CoveredRanges.h"
#include "engine/IntervalSet.h"
#include "engine/MachORebuildErrors.h"
#include "engine/chained_fixups.h"
#include "host/EditedFile.h"
#include "macho/ByteView.h"
#include "macho/ImagePointers.h"
#include "macho/traits.h"

namespace tovrek::macho {

// All failures are thrown: MachORebuildErrors, or EngineText where the engine has its own words.
// No operation touches a byte outside the image, whatever the image claims about itself.
template <class Arch>
class MachOChecker {
 public:
  using P = typename Arch::P;

  // Whether magic number, cputype and file type are those of an image of this architecture.
  static bool validFile(ByteView image);

  // Validates the image.
  static void doCheck(ByteView image, const std::string& path, bool sdkOrder, bool libraryType,
                      AcceptanceRules rules);
  // Checks the order of the libraries and inserts the load commands for `binaryType` into the
  // file, which is mapped for editing. The image is not validated otherwise.
  static void doAddDylib(EditedFile& file, const std::string& path, bool sdkOrder, bool libraryType,
                         int binaryType, bool strictHeaderRoom);
  // Throws whatever the insertion with a strict view of the header's room would end with before
  // it changes anything.
  static void doCheckInsertion(ByteView image, const std::string& path, bool sdkOrder,
                               bool libraryType, int binaryType);

  // --- Adjusting stored pointers: part of the engine's interface, used by no command. ---

  // Adds `delta` to the pointer stored at `slot`, in this machine's byte order whatever the
  // architecture, when it is at least `low` and (but for the two arm architectures) below `high`.
  // Answers the next slot. The caller vouches for the slot's bytes.
  static std::byte* updateFunctionPtr(uint64_t low, uint64_t high, std::byte* slot, int64_t delta);
  // Adjusts the pointers at all registered offsets by `base` and empties the registry.
  static void ProcessAddressOffsets(EditableByteView image, uint64_t size, bool flag,
                                    uint64_t base);
  static void wexUpdateAddressOffsets(EditableByteView image, const std::string& name,
                                      uint64_t size, uint64_t base);
  // Hands the image to CollectObjCAddressOffsets and answers its cpusubtype.
  static uint32_t wexClassProcess(ByteView image, const std::string& name, uint64_t size);

 private:
  using Header = macho_header<P>;
  using Segment = macho_segment_command<P>;
  using Section = macho_section<P>;
  using Relocation = macho_relocation_info<P>;

  static constexpr uint32_t kHeaderSize = sizeof(Header);
  static constexpr uint32_t kPointerSize = P::kPointerSize;
  static constexpr uint32_t kLoadCommandSizeMask = kPointerSize - 1;
  static constexpr bool kHasRelocations = Arch::kCpuType != arm64::kCpuType;

  struct SectionInfo {
    Section record;
    bool writable;  // as its segment at start
  };
  // What entries of relocation tables are held against.
  struct RelocationPlaces {
    explicit RelocationPlaces(const MachOChecker& image)
        : base(image.relocBase()), writable(image.writableRanges_) {}
    uint64_t base;
    IntervalSet::Lookup writable;
  };
  // Where pointers that the loader adjusts may lie; sorted once asked for.
  struct FixupSites {
    std::vector<uint64_t> rebased;
    std::vector<uint64_t> bound;
    std::vector<ChainedSite> chained;  // both again, where they come from chains
  };

  MachOChecker(ByteView image, std::string path, bool libraryType, AcceptanceRules rules);

  // checker_core.cpp
  void checkAll(bool sdkOrder);
  uint64_t commandsEnd() const { return kHeaderSize + uint64_t{header_.sizeofcmds}; }
  const void* addressOf(uint64_t offset) const;
  CommandView commandAt(uint32_t index, uint64_t offset) const;
  void requireInside(const CommandView& command) const;
  void recordPointers(const CommandView& command);
  // Visits the commands in order, each bounded by the header's count and the file.
  template <class Visitor>
  void forEachCommand(Visitor&& visit) const {
    uint64_t offset = kHeaderSize;
    for (uint32_t i = 0; i < header_.ncmds; ++i) {
      const CommandView command = commandAt(i, offset);
      requireInside(command);
      visit(command);
      offset = command.end();
    }
  }
  ByteView stringPool() const;
  // An executable that no loader completes.
  bool isStatic() const { return header_.filetype == MH_EXECUTE && !pointers_.loadsDylinker; }

  // checker_header.cpp
  void checkMachHeader();
  // checker_commands.cpp
  void checkLoadCommands();
  void checkCommandKinds();
  void checkCommandKind(const CommandView& command);
  // checker_segments.cpp
  void checkSegments();
  void checkSegment(const CommandView& command);
  void checkSegmentRanges(const Segment& segment);
  void rememberSegment(const Segment& segment);
  void checkSection(const Segment& segment, const Section& section);
  // checker_layout.cpp
  void checkRequiredSegments() const;
  void checkStack() const;
  void checkEntryPoint() const;
  void checkStaticFlags() const;
  void checkEncryption() const;
  uint64_t threadRegister(uint32_t index) const;
  // checker_link_edit.cpp
  void checkLinkEdit() const;
  void checkSymbolTableRanges(const CommandView& command) const;
  void checkDynamicSymbolTableRanges(const CommandView& command) const;
  void checkLinkEditData(const CommandView& command) const;
  void requireInLinkEdit(uint64_t start, uint64_t size, MachORebuildErrors below,
                         MachORebuildErrors beyond) const;
  // checker_library_order.cpp
  void checkOrderOfLoadDylibCommands(bool sdkOrder) const;
  // checker_indirect.cpp
  void checkIndirectSymbolTable() const;
  // checker_relocations.cpp
  void checkRelocations() const;
  void checkExternalRelocations() const;
  static bool claimsTextRelocations(const SectionInfo& info);
  void checkLocalRelocations(std::vector<uint64_t>* sites) const;
  void checkExternalReloation(const Relocation& entry, RelocationPlaces& places) const;
  void checkLocalReloation(const Relocation& entry, RelocationPlaces& places) const;
  uint64_t relocBase() const;
  static uint64_t relocatedAddress(const Relocation& entry, uint64_t base) {
    return static_cast<typename P::Integer>(base + entry.distance());
  }
  // Hands over the entries of a table that was found to lie in the link-edit segment.
  template <class Visitor>
  void forEachRelocation(uint64_t offset, uint32_t count, Visitor visit) const {
    const ByteView table = image_.sub(offset, uint64_t{count} * sizeof(Relocation));
    for (uint32_t i = 0; i < count; ++i) {
      Relocation entry;
      if (!table.read(uint64_t{i} * sizeof(entry), &entry)) {
        throw MachORebuildErrors::kCommandBeyondFile;
      }
      visit(entry);
    }
  }
  // checker_symbols.cpp
  void checkSymbolTable() const;
  macho_nlist<P> symbolAt(uint64_t index) const;
  uint64_t nameOffsetOf(const macho_nlist<P>& symbol, uint64_t poolSize) const;
  // checker_init_terms.cpp
  void checkInitTerms() const;
  IntervalSet initTermPlaces() const;
  std::optional<FixupSites> collectChainedSites() const;
  void checkInitTermTargets(const SectionInfo& section, std::string_view kind,
                            std::span<const ChainedSite> chained, CoveredRanges& done) const;
  void checkInitTermSites(const SectionInfo& section, std::string_view kind,
                          const FixupSites& sites, CoveredRanges& done) const;
  FixupSites collectFixupSites() const;

  // checker_insertion.cpp
  struct InsertionPlan;
  void addDylibs(int binaryType);
  void checkHeaderRoom(int binaryType);
  bool hasRoom(const InsertionPlan& plan, uint64_t added) const;
  void addOrvaneDylibLoadCommand(std::string_view dylib);
  void addOrvaneLoggerDylibLoadCommand(std::string_view dylib);
  InsertionPlan planInsertion(std::string_view caller, std::string_view dylib, bool unlessPresent);
  void updateLimit(const CommandView& command, uint64_t* limit) const;
  void updateLowest(const CommandView& command, uint64_t* lowest) const;
  void insertCommand(std::string_view caller, const InsertionPlan& plan, std::string_view dylib);
  void moveEncryptionBehindCommands();
  void updateImagePointers();

  std::string path_;
  ByteView image_;
  EditedFile* file_ = nullptr;  // set while inserting
  bool libraryType_;
  AcceptanceRules rules_;
  Header header_{};
  bool positionIndependentOrLibrary_ = false;

  // The commands that later steps look at, and what the segment pass has gathered.
  ImagePointers<P> pointers_;
  std::vector<Segment> segments_;
  std::vector<SectionInfo> sections_;
  IntervalSet vmRanges_, fileRanges_, writableRanges_;
  std::optional<Segment> textSegment_, stackSegment_;
  std::optional<uint64_t> firstWritable_;  // index into segments_
  bool highBase_ = false;                  // a segment lies above 4 GB
};

// Process-wide offsets of pointers that await an adjustment.
void addPointerOffset(uint64_t offset);

// Does nothing yet: no class list is rewritten.
void CollectObjCAddressOffsets(uint32_t cputype, uint32_t cpusubtype, const std::string& name,
                               ByteView image);

}  // namespace tovrek::macho

// `apply` names one instantiation for an architecture.
#define TOVREK_FOR_EACH_ARCH(apply) \
  apply(ppc) apply(ppc64) apply(x86) apply(x86_64) apply(arm) apply(arm64)
