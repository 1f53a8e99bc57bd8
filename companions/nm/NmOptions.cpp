#include "companions/nm/NmOptions.h"

#include <fmt/format.h>

#include <string_view>

#include "macho/ArchName.h"

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
  constexpr std::string_view kArch = "--arch=";
  bool optionsOver = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (optionsOver || word.size() < 2 || word.front() != '-') {
      files.push_back(word);
    } else if (word == "--") {
      optionsOver = true;
    } else if (word == "-arch" || word.starts_with(kArch)) {
      if (word == "-arch" && ++i == arguments.size()) {
        return fail(error, "missing argument to -arch option");
      }
      const std::string name = word == "-arch" ? arguments[i] : word.substr(kArch.size());
      if (name != "all" && !macho::archByName(name)) {
        return fail(error, fmt::format("unknown architecture specification flag: -arch {}", name));
      }
      archs.push_back(name);
    } else {
      for (const char letter : std::string_view(word).substr(1)) {
        if (!takeLetter(letter, error)) return false;
      }
    }
  }
  if (undefinedOnly && definedOnly) return fail(error, "-u and -U can't be used together");
  if (files.empty()) files.emplace_back("a.out");
  return true;
}

}  // namespace tovrek
