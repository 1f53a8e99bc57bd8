#include "programs/otool/OtoolOptions.h"

#include <fmt/format.h>

#include <string_view>

namespace tovrek {
namespace {

// Letters of the original that list code, data or tables, which this program does not.
constexpr std::string_view kOthers = "aCcdGgHIjmMnPpqQRrSsTtx";

}  // namespace

bool OtoolOptions::takeLetter(char letter, ErrorText* error) {
  switch (letter) {
    case 'f':
      return universalHeaders = true;
    case 'h':
      return header = true;
    case 'l':
      return loadCommands = true;
    case 'L':
      return libraries = true;
    case 'D':
      return libraryId = true;
    case 'o':
      return objectiveC = true;
    case 'v':
    case 'V':
      return verbose = true;
    case 'X':
      return noLeadingLines = true;
    default:
      return fail(error, kOthers.find(letter) == std::string_view::npos
                             ? fmt::format("unknown option \"-{}\"", letter)
                             : fmt::format("option \"-{}\" is not offered by this otool", letter));
  }
}

bool OtoolOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  const auto take = [this](char letter, ErrorText* reason) { return takeLetter(letter, reason); };
  if (!parseWords(arguments, take, error)) return false;
  if (!universalHeaders && !header && !loadCommands && !libraries && !libraryId && !objectiveC) {
    return fail(error, "one of -f, -h, -l, -L, -D or -o must be specified");
  }
  return !files.empty() || fail(error, "at least one file must be specified");
}

}  // namespace tovrek
