// The command line that the programs for looking into object files share.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::listing {

struct ListingOptions {
  // Letters of one meaning, and what they switch on.
  struct Switch {
    std::string_view letters;
    bool* flag;
  };
  using TakeLetter = std::function<bool(char letter, ErrorText* error)>;

  std::vector<std::string> archs;  // -arch, none for all
  std::vector<std::string> files;

 protected:
  // Fills in the lists above and takes all other options letter by letter, as they may be joined
  // ("-gU"): by the switches, else by `take`. False, with the reason, when a letter was not taken
  // or an architecture is missing or unknown.
  bool parseWords(const std::vector<std::string>& arguments, std::span<const Switch> switches,
                  const TakeLetter& take, ErrorText* error);
};

}  // namespace tovrek::listing
