// The command line of `nm`.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "listing/ListingOptions.h"

namespace tovrek {

struct NmOptions : listing::ListingOptions {
  enum class Order { kName, kAddress, kNone };

  bool debugSymbols = false;    // -a
  bool externalOnly = false;    // -g
  bool undefinedOnly = false;   // -u
  bool definedOnly = false;     // -U
  bool namesOnly = false;       // -j
  bool inWords = false;         // -m
  bool fileOnEachLine = false;  // -A, -o
  bool reverse = false;         // -r
  Order order = Order::kName;   // -n and -v: kAddress, -p: kNone

  // The file is "a.out" when none is given. False, with the reason, for a line that makes no sense.
  bool parse(const std::vector<std::string>& arguments, ErrorText* error);

 private:
  bool takeOrder(char letter, ErrorText* error);
};

}  // namespace tovrek
