#include "companions/lipo/LipoOptions.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>

#include "macho/ArchName.h"

namespace tovrek {
namespace {

std::optional<LipoAction> actionFor(std::string_view option) {
  if (option == "-info") return LipoAction::kInfo;
  if (option == "-archs") return LipoAction::kArchs;
  if (option == "-detailed_info") return LipoAction::kDetailedInfo;
  if (option == "-verify_arch") return LipoAction::kVerifyArch;
  if (option == "-thin") return LipoAction::kThin;
  if (option == "-create") return LipoAction::kCreate;
  return std::nullopt;
}

bool checkCounts(const LipoOptions& options, ErrorText* error) {
  const LipoAction action = options.action;
  if (action == LipoAction::kNone) {
    return fail(error,
                "one of -create, -thin, -info, -archs, -detailed_info or -verify_arch must be "
                "specified");
  }
  if (options.inputs.empty()) return fail(error, "no input files specified");
  const bool one = action == LipoAction::kArchs || action == LipoAction::kVerifyArch ||
                   action == LipoAction::kThin;
  if (one && options.inputs.size() > 1) return fail(error, "only one input file can be specified");
  const bool writes = action == LipoAction::kThin || action == LipoAction::kCreate;
  if (writes && options.output.empty()) return fail(error, "no output file specified");
  if (action == LipoAction::kVerifyArch && options.archs.empty()) {
    return fail(error, "-verify_arch must be followed by an architecture");
  }
  return true;
}

}  // namespace

bool LipoOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    const bool hasNext = i + 1 < arguments.size();
    if (word == "-output" || word == "-o") {
      if (!hasNext) return fail(error, "missing argument to " + word + " option");
      if (!output.empty()) return fail(error, "only one -output option can be specified");
      output = arguments[++i];
      continue;
    }
    if (!word.starts_with('-')) {
      inputs.push_back(word);
      continue;
    }
    const auto found = actionFor(word);
    if (!found) return fail(error, "unknown flag: " + word);
    if (action != LipoAction::kNone) return fail(error, "only one action can be specified");
    action = *found;
    if (action == LipoAction::kThin) {
      if (!hasNext) return fail(error, "missing argument to -thin option");
      archs.push_back(arguments[++i]);
      if (!macho::archByName(archs.back())) {
        return fail(error,
                    fmt::format("unknown architecture specification flag: -thin {}", archs.back()));
      }
    }
    if (action == LipoAction::kVerifyArch) {
      if (hasNext && !macho::archByName(arguments[i + 1])) {
        return fail(error, fmt::format("unknown architecture specification flag: -verify_arch {}",
                                       arguments[i + 1]));
      }
      while (i + 1 < arguments.size() && macho::archByName(arguments[i + 1])) {
        archs.push_back(arguments[++i]);
      }
    }
  }
  return checkCounts(*this, error);
}

}  // namespace tovrek
