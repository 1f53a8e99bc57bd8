#include "programs/lipo/Input.h"

#include <fmt/format.h>

#include "macho/ArchName.h"

namespace tovrek {

using macho::FatFile;
using macho::FatSlice;

std::string nameOf(const FatSlice& slice) {
  return macho::archName(slice.cputype, slice.cpusubtype);
}

std::string_view Input::bytesOf(const FatSlice& slice) const {
  const void* start = file.bytes().data() + slice.offset;
  return {static_cast<const char*>(start), static_cast<size_t>(slice.size)};
}

const FatSlice* Input::findArch(const std::string& name) const {
  const auto wanted = macho::archByName(name);
  for (const FatSlice& slice : contents.slices) {
    if (wanted && macho::sameArch(*wanted, {slice.cputype, slice.cpusubtype})) return &slice;
  }
  return nullptr;
}

std::unique_ptr<Input> openInput(const std::string& path, ErrorText* error) {
  auto input = std::make_unique<Input>();
  input->path = path;
  ErrorText reason;
  if (!input->file.open(path, &reason)) {
    fail(error, fmt::format("can't open input file: {} ({})", path, reason.text()));
    return nullptr;
  }
  const macho::ByteView bytes(input->file.bytes());
  if (!FatFile::read(bytes, &input->contents, &reason)) {
    fail(error, input->contents.fat
                    ? fmt::format("malformed fat file: {} ({})", path, reason.text())
                    : "can't figure out the architecture type of: " + path);
    return nullptr;
  }
  return input;
}

bool openInputs(const LipoOptions& options, Inputs* inputs, ErrorText* error) {
  for (const std::string& path : options.inputs) {
    inputs->push_back(openInput(path, error));
    if (inputs->back() == nullptr) return false;
  }
  for (const auto& [index, arch] : options.expectedArchs) {
    const Input& input = *(*inputs)[index];
    if (!input.contents.fat && input.findArch(arch) == nullptr) {
      return fail(error,
                  fmt::format("specified architecture type ({}) for file ({}) does not match "
                              "its cputype and cpusubtype",
                              arch, input.path));
    }
  }
  return true;
}

}  // namespace tovrek
