// The command line of `lipo`.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

enum class LipoAction {
  kNone,
  kInfo,
  kArchs,
  kDetailedInfo,
  kVerifyArch,
  kThin,
  kCreate,
  kExtract,
  kRemove,
  kReplace,
};

struct LipoOptions {
  LipoAction action = LipoAction::kNone;
  std::vector<std::string> inputs;
  std::vector<std::string> archs;         // of every action that names some
  std::vector<std::string> replacements;  // of -replace: the file for each of `archs`
  // Of `-arch NAME FILE` as an input: the index of the file, and what it has to be.
  std::vector<std::pair<size_t, std::string>> expectedArchs;
  std::string output;

  // False, with the reason, for a line that makes no sense.
  bool parse(const std::vector<std::string>& arguments, ErrorText* error);

 private:
  bool takeAction(LipoAction found, const std::string& word, ErrorText* error);
};

}  // namespace tovrek
