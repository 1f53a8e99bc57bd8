// Elements of BER and DER (X.690), as they stand one behind the other.
#pragma once

#include <optional>
#include <string_view>

namespace tovrek::signing {

struct BerElement {
  int tag = 0;
  int kind = 0;  // V_ASN1_UNIVERSAL and the like
  bool isConstructed = false;
  bool isDefinite = true;  // its length is stated; always so in DER
  std::string_view whole;
  std::string_view contents;  // without the mark that ends an indefinite length
};

// Takes the next element from `rest`; none, with nothing said about `rest`, where there is no whole
// one and where elements of indefinite length lie deeper in each other than messages have them.
std::optional<BerElement> takeElement(std::string_view* rest);

}  // namespace tovrek::signing
