// The command line that the programs for looking into object files share.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::listing {

struct ListingOptions {
  using TakeLetter = std::function<bool(char letter, ErrorText* error)>;

  std::vector<std::string> archs;  // -arch, none for all
  std::vector<std::string> files;

 protected:
  // Fills in the lists above and hands over all other options letter by letter, as they may be
  // joined ("-gU"). False, with the reason, when a letter was not taken or an architecture is
  // missing or unknown.
  bool parseWords(const std::vector<std::string>& arguments, const TakeLetter& take,
                  ErrorText* error);
};

}  // namespace tovrek::listing
