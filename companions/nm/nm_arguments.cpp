#include "companions/nm/nm_arguments.h"

#include "companions/launch/meant_file.h"

namespace tovrek {

std::vector<std::string> nmArguments(const std::vector<std::string>& arguments) {
  std::vector<std::string> result;
  std::string arch = "--arch=all";
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "-arch" && i + 1 < arguments.size()) {
      arch = "--arch=" + arguments[++i];
    } else if (word.starts_with("--arch=")) {
      arch = word;
    } else {
      result.push_back(word.starts_with("-") ? word : launch::meantFile(word));
    }
  }
  result.insert(result.begin(), arch);
  return result;
}

}  // namespace tovrek
