#include "programs/otool/OtoolOptions.h"

#include <fmt/format.h>

#include <string_view>

namespace tovrek {
namespace {

// Letters of the original that list code, data or tables, which this program does not.
constexpr std::string_view kOthers = "aCcdGgHIjmMnPpqQRrSsTtx";

bool refuse(char letter, ErrorText* error) {
  return fail(error, kOthers.find(letter) == std::string_view::npos
                         ? fmt::format("unknown option \"-{}\"", letter)
                         : fmt::format("option \"-{}\" is not offered by this otool", letter));
}

}  // namespace

bool OtoolOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  const Switch switches[] = {{"f", &universalHeaders}, {"h", &header},        {"l", &loadCommands},
                             {"L", &libraries},        {"D", &libraryId},     {"o", &objectiveC},
                             {"vV", &verbose},         {"X", &noLeadingLines}};
  if (!parseWords(arguments, switches, refuse, error)) return false;
  if (!universalHeaders && !header && !loadCommands && !libraries && !libraryId && !objectiveC) {
    return fail(error, "one of -f, -h, -l, -L, -D or -o must be specified");
  }
  return !files.empty() || fail(error, "at least one file must be specified");
}

}  // namespace tovrek
