#include "listing/ListingOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "macho/ArchName.h"

namespace tovrek::listing {
namespace {

bool switchOn(std::span<const ListingOptions::Switch> switches, char letter) {
  const auto meant = std::ranges::find_if(switches, [letter](const auto& each) {
    return each.letters.find(letter) != std::string_view::npos;
  });
  return meant != switches.end() && (*meant->flag = true);
}

}  // namespace

bool ListingOptions::parseWords(const std::vector<std::string>& arguments,
                                std::span<const Switch> switches, const TakeLetter& take,
                                ErrorText* error) {
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
        return fail(error, fmt::format("{}: -arch {}", macho::kUnknownArchFlag, name));
      }
      archs.push_back(name);
    } else {
      for (const char letter : std::string_view(word).substr(1)) {
        if (!switchOn(switches, letter) && !take(letter, error)) return false;
      }
    }
  }
  return true;
}

}  // namespace tovrek::listing
