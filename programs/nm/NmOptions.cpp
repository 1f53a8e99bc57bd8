#include "programs/nm/NmOptions.h"

#include <fmt/format.h>

#include <string_view>

namespace tovrek {

bool NmOptions::takeOrder(char letter, ErrorText* error) {
  if (letter != 'n' && letter != 'v' && letter != 'p') {
    return fail(error, fmt::format("unknown option \"-{}\"", letter));
  }
  order = letter == 'p' ? Order::kNone : Order::kAddress;
  return true;
}

bool NmOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  const Switch switches[] = {{"a", &debugSymbols}, {"g", &externalOnly},   {"u", &undefinedOnly},
                             {"U", &definedOnly},  {"j", &namesOnly},      {"m", &inWords},
                             {"r", &reverse},      {"Ao", &fileOnEachLine}};
  const auto take = [this](char letter, ErrorText* reason) { return takeOrder(letter, reason); };
  if (!parseWords(arguments, switches, take, error)) return false;
  if (undefinedOnly && definedOnly) return fail(error, "-u and -U can't be used together");
  if (files.empty()) files.emplace_back("a.out");
  return true;
}

}  // namespace tovrek
