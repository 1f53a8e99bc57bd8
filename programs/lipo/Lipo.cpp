#include "programs/lipo/Lipo.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "macho/FatFile.h"
#include "macho/layout.h"
#include "programs/lipo/Input.h"
#include "programs/lipo/LipoOptions.h"
#include "programs/lipo/outputs.h"

namespace tovrek::lipo {
namespace {

using macho::FatFile;
using macho::FatSlice;

constexpr std::string_view kUsage =
    "Usage: lipo FILE... -info                  lipo FILE -verify_arch ARCH...\n"
    "       lipo FILE... -detailed_info         lipo FILE -thin ARCH -output OUTPUT\n"
    "       lipo FILE -archs                    lipo FILE... -create -output OUTPUT\n"
    "       lipo FILE -extract ARCH [-extract ARCH...] -output OUTPUT\n"
    "       lipo FILE -remove ARCH [-remove ARCH...] -output OUTPUT\n"
    "       lipo FILE -replace ARCH FILE [-replace ARCH FILE...] -output OUTPUT\n"
    "An input FILE may be given as -arch ARCH FILE.\n";

// Each name followed by a blank, as the original prints them.
std::string listOfNames(const FatFile& file) {
  std::string names;
  for (const FatSlice& slice : file.slices) names += nameOf(slice) + " ";
  return names;
}

void printInfo(const Input& input, const Streams& streams) {
  if (input.contents.fat) {
    streams.out(fmt::format("Architectures in the fat file: {} are: {}\n", input.path,
                            listOfNames(input.contents)));
  } else {
    streams.out(fmt::format("Non-fat file: {} is architecture: {}\n", input.path,
                            nameOf(input.contents.slices.front())));
  }
}

void printDetailedInfo(const Input& input, const Streams& streams) {
  if (!input.contents.fat) {
    streams.out(fmt::format("input file {} is not a fat file\n", input.path));
    printInfo(input, streams);
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
  streams.out(text);
}

// The exit status, or none after a failure.
std::optional<int> perform(const LipoOptions& options, const Streams& streams, ErrorText* error) {
  Inputs inputs;
  if (!openInputs(options, &inputs, error)) return std::nullopt;
  const Input& first = *inputs.front();
  const auto statusOf = [](bool done) { return done ? std::optional(0) : std::nullopt; };
  switch (options.action) {
    case LipoAction::kInfo:
      for (const auto& input : inputs) printInfo(*input, streams);
      break;
    case LipoAction::kDetailedInfo:
      for (const auto& input : inputs) printDetailedInfo(*input, streams);
      break;
    case LipoAction::kArchs: {
      std::string names = listOfNames(first.contents);
      if (!names.empty()) names.pop_back();
      streams.out(names + "\n");
      break;
    }
    case LipoAction::kVerifyArch:
      return std::ranges::all_of(
                 options.archs,
                 [&first](const std::string& name) { return first.findArch(name) != nullptr; })
                 ? 0
                 : 1;
    case LipoAction::kThin:
      return statusOf(makeThin(first, options, error));
    case LipoAction::kCreate:
      return statusOf(create(inputs, options, error));
    case LipoAction::kExtract:
    case LipoAction::kRemove:
      return statusOf(keepSlices(first, options, error));
    case LipoAction::kReplace:
      return statusOf(replaceSlices(first, options, error));
    case LipoAction::kNone:
      break;
  }
  return 0;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  constexpr std::string_view kHelp[] = {"--help", "-help", "-h"};
  if (arguments.words.size() == 1 && std::ranges::count(kHelp, arguments.words.front()) != 0) {
    streams.out(kUsage);
    return 0;
  }
  LipoOptions options;
  ErrorText error;
  if (options.parse(arguments.words, &error)) {
    if (const auto status = perform(options, streams, &error)) return *status;
  }
  const std::string program = arguments.program.empty() ? "lipo" : arguments.program;
  streams.error(fmt::format("fatal error: {}: {}\n", program, error.text()));
  return 1;
}

}  // namespace tovrek::lipo
