#include "programs/nm/NmOptions.h"

#include <fmt/format.h>

#include <string_view>

namespace tovrek {

bool NmOptions::takeLetter(char letter, ErrorText* error) {
  switch (letter) {
    case 'a':
      return debugSymbols = true;
    case 'g':
      return externalOnly = true;
    case 'u':
      return undefinedOnly = true;
    case 'U':
      return definedOnly = true;
    case 'j':
      return namesOnly = true;
    case 'm':
      return inWords = true;
    case 'A':
    case 'o':
      return fileOnEachLine = true;
    case 'r':
      return reverse = true;
    case 'n':
    case 'v':
      order = Order::kAddress;
      return true;
    case 'p':
      order = Order::kNone;
      return true;
    default:
      return fail(error, fmt::format("unknown option \"-{}\"", letter));
  }
}

bool NmOptions::parse(const std::vector<std::string>& arguments, ErrorText* error) {
  const auto take = [this](char letter, ErrorText* reason) { return takeLetter(letter, reason); };
  if (!parseWords(arguments, take, error)) return false;
  if (undefinedOnly && definedOnly) return fail(error, "-u and -U can't be used together");
  if (files.empty()) files.emplace_back("a.out");
  return true;
}

}  // namespace tovrek
