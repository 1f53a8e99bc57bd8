// The files that `lipo` reads.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/MappedFile.h"
#include "macho/FatFile.h"
#include "programs/lipo/LipoOptions.h"

namespace tovrek {

// A thin or universal file, mapped while this lives.
struct Input {
  std::string path;
  MappedFile file;
  macho::FatFile contents;

  std::string_view bytesOf(const macho::FatSlice& slice) const;
  // Null when the file has no slice of that architecture.
  const macho::FatSlice* findArch(const std::string& name) const;
};
using Inputs = std::vector<std::unique_ptr<Input>>;

std::string nameOf(const macho::FatSlice& slice);

// Null, with the reason, for what is no sound Mach-O file.
std::unique_ptr<Input> openInput(const std::string& path, ErrorText* error);

// Opens all inputs of the options; false, with the reason, also when one is not of the architecture
// that it is said to be.
bool openInputs(const LipoOptions& options, Inputs* inputs, ErrorText* error);

}  // namespace tovrek
