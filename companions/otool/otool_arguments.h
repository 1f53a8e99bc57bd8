// otool's command line in the words of llvm-objdump. llvm-otool itself is no match: of a
// universal file it prints only the slice of this machine's own processor, when there is one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

// Options -l, -o, -h, -f, -L, -D, in any mix ("-hl"), with -v, -V and -X accepted, and
// "-arch NAME" for one slice; without it every slice is shown. None, with the reason, for other
// options and without a file.
std::optional<std::vector<std::string>> otoolArguments(const std::vector<std::string>& arguments,
                                                       ErrorText* error);

}  // namespace tovrek
