#include "companions/otool/otool_arguments.h"

#include <fmt/format.h>

#include <string_view>

#include "companions/launch/meant_file.h"

namespace tovrek {

namespace {

// Empty for an option that changes nothing here; none for an unknown one.
std::optional<std::string_view> objdumpOption(char letter) {
  switch (letter) {
    case 'l':
      return "--private-headers";
    case 'o':
      return "--objc-meta-data";
    case 'h':
      return "--private-header";
    case 'f':
      return "--universal-headers";
    case 'L':
      return "--dylibs-used";
    case 'D':
      return "--dylib-id";
    case 'v':
    case 'V':
    case 'X':
      return "";
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<std::vector<std::string>> otoolArguments(const std::vector<std::string>& arguments,
                                                       ErrorText* error) {
  std::vector<std::string> result = {"-m"};
  std::vector<std::string> files;
  std::string arch = "all";
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "-arch" && i + 1 < arguments.size()) {
      arch = arguments[++i];
    } else if (word.size() < 2 || word.front() != '-') {
      files.push_back(launch::meantFile(word));
    } else {
      for (const char letter : word.substr(1)) {
        const auto option = objdumpOption(letter);
        if (!option) {
          fail(error, fmt::format("unknown option \"{}\"", word));
          return std::nullopt;
        }
        if (!option->empty()) result.emplace_back(*option);
      }
    }
  }
  if (result.size() == 1 || files.empty()) {
    fail(error, files.empty() ? "at least one file must be given"
                              : "one of -l, -o, -h, -f, -L or -D must be given");
    return std::nullopt;
  }
  result.push_back("--arch=" + arch);
  result.insert(result.end(), files.begin(), files.end());
  return result;
}

}  // namespace tovrek
