#include "programs/lipo/LipoOptions.h"

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
  if (option == "-extract") return LipoAction::kExtract;
  if (option == "-remove") return LipoAction::kRemove;
  if (option == "-replace") return LipoAction::kReplace;
  return std::nullopt;
}

// May be given several times in one line.
bool isRepeatable(LipoAction action) {
  return action == LipoAction::kExtract || action == LipoAction::kRemove ||
         action == LipoAction::kReplace;
}

bool checkCounts(const LipoOptions& options, ErrorText* error) {
  const LipoAction action = options.action;
  if (action == LipoAction::kNone) {
    return fail(error,
                "one of -create, -thin, -extract, -remove, -replace, -info, -archs, -detailed_info "
                "or -verify_arch must be specified");
  }
  if (options.inputs.empty()) return fail(error, "no input files specified");
  const bool many = action == LipoAction::kInfo || action == LipoAction::kDetailedInfo ||
                    action == LipoAction::kCreate;
  if (!many && options.inputs.size() > 1)
    return fail(error, "only one input file can be specified");
  const bool writes =
      action == LipoAction::kThin || action == LipoAction::kCreate || isRepeatable(action);
  if (writes && options.output.empty()) return fail(error, "no output file specified");
  if (action == LipoAction::kVerifyArch && options.archs.empty()) {
    return fail(error, "-verify_arch must be followed by an architecture");
  }
  return true;
}

// The words behind an option, taken one by one.
class Words {
 public:
  explicit Words(const std::vector<std::string>& words) : words_(words) {}

  bool over() const { return next_ == words_.size(); }
  const std::string& peek() const { return words_[next_]; }
  const std::string& take() { return words_[next_++]; }

  bool takeValue(const std::string& option, std::string* out, ErrorText* error) {
    if (over()) return fail(error, "missing argument to " + option + " option");
    *out = take();
    return true;
  }
  bool takeArch(const std::string& option, std::string* out, ErrorText* error) {
    if (!takeValue(option, out, error)) return false;
    return macho::archByName(*out) ||
           fail(error, fmt::format("{}: {} {}", macho::kUnknownArchFlag, option, *out));
  }

 private:
  const std::vector<std::string>& words_;
  size_t next_ = 0;
};

}  // namespace

bool LipoOptions::takeAction(LipoAction found, const std::string& word, ErrorText* error) {
  const bool again = action == found && isRepeatable(found);
  if (action != LipoAction::kNone && !again) {
    return fail(error, fmt::format("only one action can be specified, not {} too", word));
  }
  action = found;
  return true;
}

bool LipoOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  Words words(arguments);
  while (!words.over()) {
    const std::string& word = words.take();
    std::string value;
    if (word == "-output" || word == "-o") {
      if (!output.empty()) return fail(error, "only one -output option can be specified");
      if (!words.takeValue(word, &output, error)) return false;
      continue;
    }
    if (word == "-arch") {
      if (!words.takeArch(word, &value, error)) return false;
      expectedArchs.emplace_back(inputs.size(), value);
      if (!words.takeValue(word, &value, error)) return false;
      inputs.push_back(value);
      continue;
    }
    if (!word.starts_with('-')) {
      inputs.push_back(word);
      continue;
    }
    const auto found = actionFor(word);
    if (!found) return fail(error, "unknown flag: " + word);
    if (!takeAction(*found, word, error)) return false;
    if (action == LipoAction::kThin || isRepeatable(action)) {
      if (!words.takeArch(word, &value, error)) return false;
      archs.push_back(value);
    }
    if (action == LipoAction::kReplace) {
      if (!words.takeValue(word, &value, error)) return false;
      replacements.push_back(value);
    }
    if (action == LipoAction::kVerifyArch) {
      if (!words.over() && !macho::archByName(words.peek())) {
        return words.takeArch(word, &value, error);
      }
      while (!words.over() && macho::archByName(words.peek())) archs.push_back(words.take());
    }
  }
  return checkCounts(*this, error);
}

}  // namespace tovrek
