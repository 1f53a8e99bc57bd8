#include "programs/otool/header_listing.h"

#include <string>

#include "programs/otool/names.h"

namespace tovrek::otool {
namespace {

using listing::Output;

constexpr uint32_t kCapability64BitLibraries = 0x80;

std::string nameOr(std::string_view name, uint32_t number) {
  return name.empty() ? std::to_string(number) : std::string(name);
}

}  // namespace

void listUniversalHeader(const macho::ObjectFile& file, bool verbose, Output* output) {
  if (file.kind() != macho::ObjectFile::Kind::kUniversal) return;
  const bool wide = file.table()->isWide();
  const char* magic = wide ? "0xcafebabf" : "0xcafebabe";
  if (verbose) magic = wide ? "FAT_MAGIC_64" : "FAT_MAGIC";
  output->print("Fat headers\nfat_magic {}\nnfat_arch {}\n", magic, file.table()->count());
  for (size_t i = 0; i < file.slices().size(); ++i) {
    const macho::Slice& slice = file.slices()[i];
    const macho::FatSlice& entry = slice.entry;
    const uint32_t subtype = entry.cpusubtype & macho::kCpuSubtypeMask;
    const uint32_t capabilities = entry.cpusubtype >> 24;
    if (verbose) {
      output->print("architecture {}\n    cputype {}\n    cpusubtype {}\n", slice.archName,
                    nameOr(longCpuTypeName(entry.cputype), entry.cputype),
                    nameOr(longSubtypeName(entry.cputype, subtype), subtype));
    } else {
      output->print("architecture {}\n    cputype {}\n    cpusubtype {}\n", i, entry.cputype,
                    subtype);
    }
    if (verbose && capabilities == kCapability64BitLibraries) {
      output->text("    capabilities CPU_SUBTYPE_LIB64\n");
    } else {
      output->print("    capabilities {:#x}\n", capabilities);
    }
    const bool inside = file.bytes().contains(entry.offset, entry.size);
    output->print("    offset {}{}\n    size {}{}\n    align 2^{} ({})\n", entry.offset,
                  entry.offset > file.bytes().size() ? " (past end of file)" : "", entry.size,
                  inside ? "" : " (past end of file)", entry.align,
                  entry.align < 32 ? uint64_t{1} << entry.align : 0);
  }
}

template <class P>
void listHeader(const macho::Image<P>& image, bool verbose, Output* output) {
  output->text(
      "Mach header\n"
      "      magic cputype cpusubtype  caps    filetype ncmds sizeofcmds      flags\n");
  const auto& header = image.header;
  const uint32_t cputype = header.cputype;
  const uint32_t subtype = header.cpusubtype & macho::kCpuSubtypeMask;
  const uint32_t capabilities = header.cpusubtype >> 24;
  const uint32_t filetype = header.filetype;
  const uint32_t ncmds = header.ncmds;
  const uint32_t sizeofcmds = header.sizeofcmds;
  const uint32_t flags = header.flags;
  if (!verbose) {
    output->print(" {:#010x} {:7} {:10}  0x{:02x}  {:10} {:5} {:10} {:#010x}\n", P::kMagic, cputype,
                  subtype, capabilities, filetype, ncmds, sizeofcmds, flags);
    return;
  }
  output->print("{:>11} {:>7} {:>10}", P::kPointerSize == 8 ? "MH_MAGIC_64" : "MH_MAGIC",
                nameOr(nameIn(kCpuTypes, cputype), cputype),
                nameOr(subtypeName(cputype, subtype), subtype));
  if (capabilities == kCapability64BitLibraries) {
    output->text(" LIB64");
  } else {
    output->print("  0x{:02x}", capabilities);
  }
  uint32_t rest = 0;
  const std::string names = namesOfBits(kHeaderFlags, flags, &rest);
  output->print("  {:>10} {:5} {:10}", nameOr(nameIn(kFileTypes, filetype), filetype), ncmds,
                sizeofcmds);
  if ((flags & 1) != 0) output->text("  ");  // the first flag stands under its heading
  output->text(names);
  if (rest != 0 || flags == 0) output->print(" {:#010x}", rest);
  output->text("\n");
}

#define TOVREK_INSTANTIATE(P) template void listHeader(const macho::Image<P>&, bool, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
