// The command line of `lipo`.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

enum class LipoAction { kNone, kInfo, kArchs, kDetailedInfo, kVerifyArch, kThin, kCreate };

struct LipoOptions {
  LipoAction action = LipoAction::kNone;
  std::vector<std::string> inputs;
  std::vector<std::string> archs;  // of -verify_arch and -thin
  std::string output;

  // False, with the reason, for a line that makes no sense.
  bool parse(const std::vector<std::string>& arguments, ErrorText* error);
};

}  // namespace tovrek
