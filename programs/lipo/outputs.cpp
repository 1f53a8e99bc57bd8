#include "programs/lipo/outputs.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "host/files.h"
#include "macho/layout.h"

namespace tovrek {
namespace {

using macho::FatSlice;

// Pages of devices have 16 KB; the loader maps slices in place.
constexpr uint32_t kSliceAlign = 14;
constexpr uint32_t kProgramMode = 0755;

bool writeOutput(const LipoOptions& options, const std::vector<std::string_view>& parts,
                 uint32_t mode, ErrorText* error) {
  ErrorText reason;
  if (writeFileAtomically(options.output, parts, mode, &reason)) return true;
  return fail(error,
              fmt::format("can't create output file: {} ({})", options.output, reason.text()));
}

// A slice to be, with its bytes.
struct Member {
  FatSlice slice;
  std::string_view bytes;
};

bool writeUniversal(const std::vector<Member>& members, const LipoOptions& options, uint32_t mode,
                    ErrorText* error) {
  std::vector<FatSlice> slices;
  for (const Member& member : members) slices.push_back(member.slice);
  if (!macho::layOutFatFile(slices, error)) return false;

  const std::string header = macho::fatFileHeader(slices);
  const std::string padding(size_t{1} << kSliceAlign, '\0');
  std::vector<std::string_view> parts = {header};
  uint64_t end = header.size();
  for (size_t i = 0; i < slices.size(); ++i) {
    for (uint64_t gap = slices[i].offset - end; gap > 0;) {
      const uint64_t piece = std::min<uint64_t>(gap, padding.size());
      parts.push_back(std::string_view(padding).substr(0, piece));
      gap -= piece;
    }
    parts.push_back(members[i].bytes);
    end = slices[i].offset + slices[i].size;
  }
  return writeOutput(options, parts, mode, error);
}

bool requireUniversal(const Input& input, std::string_view option, ErrorText* error) {
  return input.contents.fat ||
         fail(error, fmt::format("input file ({}) must be a fat file when the {} option is "
                                 "specified",
                                 input.path, option));
}

bool requireArchs(const Input& input, const LipoOptions& options, std::string_view option,
                  ErrorText* error) {
  if (!requireUniversal(input, option, error)) return false;
  for (const std::string& arch : options.archs) {
    if (input.findArch(arch) == nullptr) {
      return fail(error, fmt::format("{} {} specified but fat file: {} does not contain that "
                                     "architecture",
                                     option, arch, input.path));
    }
  }
  return true;
}

uint32_t modeOf(const Input& input) {
  return fileMode(input.path).value_or(kProgramMode);
}

}  // namespace

bool makeThin(const Input& input, const LipoOptions& options, ErrorText* error) {
  if (!requireUniversal(input, "-thin", error)) return false;
  const std::string& arch = options.archs.front();
  const FatSlice* slice = input.findArch(arch);
  if (slice == nullptr) {
    return fail(error, fmt::format("fat input file ({}) does not contain the specified "
                                   "architecture ({}) to thin it to",
                                   input.path, arch));
  }
  return writeOutput(options, {input.bytesOf(*slice)}, modeOf(input), error);
}

bool create(const Inputs& inputs, const LipoOptions& options, ErrorText* error) {
  std::map<std::pair<uint32_t, uint32_t>, const Input*> seen;
  std::vector<Member> members;
  for (const auto& input : inputs) {
    for (FatSlice slice : input->contents.slices) {
      const std::pair arch(slice.cputype, slice.cpusubtype & macho::kCpuSubtypeMask);
      const auto [other, isNew] = seen.emplace(arch, input.get());
      if (!isNew) {
        return fail(error, fmt::format("{} and {} have the same architectures ({}) and can't be "
                                       "in the same fat output file",
                                       other->second->path, input->path, nameOf(slice)));
      }
      const std::string_view bytes = input->bytesOf(slice);
      slice.align = kSliceAlign;
      members.push_back({slice, bytes});
    }
  }
  // A universal program must stay a program.
  return writeUniversal(members, options, modeOf(*inputs.front()) | kProgramMode, error);
}

bool keepSlices(const Input& input, const LipoOptions& options, ErrorText* error) {
  const bool extract = options.action == LipoAction::kExtract;
  if (!requireArchs(input, options, extract ? "-extract" : "-remove", error)) return false;
  std::vector<Member> members;
  for (const FatSlice& slice : input.contents.slices) {
    const bool named = std::ranges::any_of(
        options.archs, [&](const std::string& arch) { return input.findArch(arch) == &slice; });
    if (named == extract) members.push_back({slice, input.bytesOf(slice)});
  }
  if (members.empty()) return fail(error, "-remove's specified would result in an empty fat file");
  return writeUniversal(members, options, modeOf(input), error);
}

bool replaceSlices(const Input& input, const LipoOptions& options, ErrorText* error) {
  if (!requireArchs(input, options, "-replace", error)) return false;
  std::vector<Member> members;
  for (const FatSlice& slice : input.contents.slices) {
    members.push_back({slice, input.bytesOf(slice)});
  }
  Inputs replacements;
  for (size_t i = 0; i < options.archs.size(); ++i) {
    const std::string& arch = options.archs[i];
    replacements.push_back(openInput(options.replacements[i], error));
    const Input* replacement = replacements.back().get();
    if (replacement == nullptr) return false;
    const FatSlice* own = replacement->findArch(arch);
    if (replacement->contents.fat || own == nullptr) {
      return fail(error, fmt::format("specified architecture type ({}) for replacement file ({}) "
                                     "does not match its cputype and cpusubtype",
                                     arch, replacement->path));
    }
    Member& member =
        members[static_cast<size_t>(input.findArch(arch) - input.contents.slices.data())];
    member.slice.cpusubtype = own->cpusubtype;
    member.slice.size = own->size;
    member.slice.align = std::max(member.slice.align, kSliceAlign);
    member.bytes = replacement->bytesOf(*own);
  }
  return writeUniversal(members, options, modeOf(input), error);
}

}  // namespace tovrek
