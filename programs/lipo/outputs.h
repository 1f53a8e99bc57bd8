// The files that `lipo` writes. Each comes into being whole or not at all, and may take the place
// of an input.
#pragma once

#include "programs/lipo/Input.h"

namespace tovrek {

// The one architecture of -thin as a file of its own.
bool makeThin(const Input& input, const LipoOptions& options, ErrorText* error);
// All slices of all inputs in one universal file.
bool create(const Inputs& inputs, const LipoOptions& options, ErrorText* error);
// The universal file with only (-extract), or without (-remove), the architectures.
bool keepSlices(const Input& input, const LipoOptions& options, ErrorText* error);
// The universal file with thin files in place of the slices of their architectures.
bool replaceSlices(const Input& input, const LipoOptions& options, ErrorText* error);

}  // namespace tovrek
