#include "companions/lipo/Lipo.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "companions/lipo/LipoOptions.h"
#include "host/MappedFile.h"
#include "host/files.h"
#include "log/SystemLog.h"
#include "macho/ArchName.h"
#include "macho/FatFile.h"
#include "macho/layout.h"

namespace tovrek {
namespace {

using macho::FatFile;
using macho::FatSlice;

constexpr std::string_view kUsage =
    "Usage: lipo FILE... -info                  lipo FILE -verify_arch ARCH...\n"
    "       lipo FILE... -detailed_info         lipo FILE -thin ARCH -output OUTPUT\n"
    "       lipo FILE -archs                    lipo FILE... -create -output OUTPUT\n";

// Pages of devices have 16 KB; the loader maps slices in place.
constexpr uint32_t kSliceAlign = 14;
constexpr uint32_t kProgramMode = 0755;

struct Input {
  std::string path;
  MappedFile file;
  FatFile contents;

  std::string_view bytesOf(const FatSlice& slice) const {
    const void* start = file.bytes().data() + slice.offset;
    return {static_cast<const char*>(start), static_cast<size_t>(slice.size)};
  }
};

using Inputs = std::vector<std::unique_ptr<Input>>;

std::string nameOf(const FatSlice& slice) {
  return macho::archName(slice.cputype, slice.cpusubtype);
}

bool openInputs(const std::vector<std::string>& paths, Inputs* inputs, ErrorText* error) {
  for (const std::string& path : paths) {
    auto input = std::make_unique<Input>();
    input->path = path;
    ErrorText reason;
    if (!input->file.open(path, &reason)) {
      return fail(error, fmt::format("can't open input file: {} ({})", path, reason.text()));
    }
    const macho::ByteView bytes(input->file.bytes());
    if (!FatFile::read(bytes, &input->contents, &reason)) {
      return fail(error, macho::hasFatMagic(bytes)
                             ? fmt::format("malformed fat file: {} ({})", path, reason.text())
                             : "can't figure out the architecture type of: " + path);
    }
    inputs->push_back(std::move(input));
  }
  return true;
}

// Each name followed by a blank, as the original prints them.
std::string listOfNames(const FatFile& file) {
  std::string names;
  for (const FatSlice& slice : file.slices) names += nameOf(slice) + " ";
  return names;
}

const FatSlice* findArch(const FatFile& file, const std::string& name) {
  const auto wanted = macho::archByName(name);
  for (const FatSlice& slice : file.slices) {
    if (wanted && macho::sameArch(*wanted, {slice.cputype, slice.cpusubtype})) return &slice;
  }
  return nullptr;
}

void printInfo(const Input& input) {
  if (input.contents.fat) {
    printOut(fmt::format("Architectures in the fat file: {} are: {}\n", input.path,
                         listOfNames(input.contents)));
  } else {
    printOut(fmt::format("Non-fat file: {} is architecture: {}\n", input.path,
                         nameOf(input.contents.slices.front())));
  }
}

void printDetailedInfo(const Input& input) {
  if (!input.contents.fat) {
    printOut(fmt::format("input file {} is not a fat file\n", input.path));
    printInfo(input);
    return;
  }
  std::string text = fmt::format("Fat header in: {}\nfat_magic {:#x}\nnfat_arch {}\n", input.path,
                                 macho::kFatMagic, input.contents.slices.size());
  for (const FatSlice& slice : input.contents.slices) {
    text += fmt::format(
        "architecture {}\n    cputype {}\n    cpusubtype {}\n    capabilities {:#x}\n"
        "    offset {}\n    size {}\n    align 2^{} ({})\n",
        nameOf(slice), slice.cputype, slice.cpusubtype & macho::kCpuSubtypeMask,
        slice.cpusubtype >> 24, slice.offset, slice.size, slice.align,
        slice.align < 32 ? uint64_t{1} << slice.align : 0);
  }
  printOut(text);
}

bool makeThin(const Input& input, const LipoOptions& options, ErrorText* error) {
  if (!input.contents.fat) {
    return fail(error, fmt::format("input file ({}) must be a fat file when the -thin option is "
                                   "specified",
                                   input.path));
  }
  const std::string& arch = options.archs.front();
  const FatSlice* slice = findArch(input.contents, arch);
  if (slice == nullptr) {
    return fail(error, fmt::format("fat input file ({}) does not contain the specified "
                                   "architecture ({}) to thin it to",
                                   input.path, arch));
  }
  const std::string_view bytes = input.bytesOf(*slice);
  const uint32_t mode = fileMode(input.path).value_or(kProgramMode);
  ErrorText reason;
  if (writeFileAtomically(options.output, {&bytes, 1}, mode, &reason)) return true;
  return fail(error,
              fmt::format("can't create output file: {} ({})", options.output, reason.text()));
}

bool collectMembers(const Inputs& inputs, std::vector<std::string_view>* members,
                    std::vector<FatSlice>* slices, ErrorText* error) {
  std::map<std::pair<uint32_t, uint32_t>, const Input*> seen;
  for (const auto& input : inputs) {
    for (FatSlice slice : input->contents.slices) {
      const std::pair arch(slice.cputype, slice.cpusubtype & macho::kCpuSubtypeMask);
      const auto [other, isNew] = seen.emplace(arch, input.get());
      if (!isNew) {
        return fail(error, fmt::format("{} and {} have the same architectures ({}) and can't be "
                                       "in the same fat output file",
                                       other->second->path, input->path, nameOf(slice)));
      }
      members->push_back(input->bytesOf(slice));
      slice.align = kSliceAlign;
      slices->push_back(slice);
    }
  }
  return true;
}

bool create(const Inputs& inputs, const LipoOptions& options, ErrorText* error) {
  std::vector<std::string_view> members;
  std::vector<FatSlice> slices;
  if (!collectMembers(inputs, &members, &slices, error)) return false;
  if (!macho::layOutFatFile(slices, error)) return false;

  const std::string header = macho::fatFileHeader(slices);
  const std::string padding(size_t{1} << kSliceAlign, '\0');
  std::vector<std::string_view> parts = {header};
  uint64_t end = header.size();
  for (size_t i = 0; i < slices.size(); ++i) {
    // Never longer than one alignment unit, but for a header that has grown beyond it.
    for (uint64_t gap = slices[i].offset - end; gap > 0;) {
      const uint64_t piece = std::min<uint64_t>(gap, padding.size());
      parts.push_back(std::string_view(padding).substr(0, piece));
      gap -= piece;
    }
    parts.push_back(members[i]);
    end = slices[i].offset + slices[i].size;
  }
  // A universal program must stay a program.
  const uint32_t mode = fileMode(inputs.front()->path).value_or(kProgramMode) | kProgramMode;
  ErrorText reason;
  if (writeFileAtomically(options.output, parts, mode, &reason)) return true;
  return fail(error,
              fmt::format("can't create output file: {} ({})", options.output, reason.text()));
}

// The exit status, or none after a failure.
std::optional<int> perform(const LipoOptions& options, ErrorText* error) {
  Inputs inputs;
  if (!openInputs(options.inputs, &inputs, error)) return std::nullopt;
  const Input& first = *inputs.front();
  bool done = true;
  switch (options.action) {
    case LipoAction::kInfo:
      for (const auto& input : inputs) printInfo(*input);
      break;
    case LipoAction::kDetailedInfo:
      for (const auto& input : inputs) printDetailedInfo(*input);
      break;
    case LipoAction::kArchs: {
      std::string names = listOfNames(first.contents);
      if (!names.empty()) names.pop_back();
      printOut(names + "\n");
      break;
    }
    case LipoAction::kVerifyArch:
      return std::ranges::all_of(options.archs,
                                 [&first](const std::string& name) {
                                   return findArch(first.contents, name) != nullptr;
                                 })
                 ? 0
                 : 1;
    case LipoAction::kThin:
      done = makeThin(first, options, error);
      break;
    case LipoAction::kCreate:
      done = create(inputs, options, error);
      break;
    case LipoAction::kNone:
      break;
  }
  if (!done) return std::nullopt;
  return 0;
}

}  // namespace

int runLipo(const std::string& program, const std::vector<std::string>& arguments) {
  if (arguments == std::vector<std::string>{"--help"}) {
    printOut(kUsage);
    return 0;
  }
  LipoOptions options;
  ErrorText error;
  if (options.parse(arguments, &error)) {
    if (const auto status = perform(options, &error)) return *status;
  }
  printError(fmt::format("fatal error: {}: {}\n", program, error.text()));
  return 1;
}

}  // namespace tovrek
