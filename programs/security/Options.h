// Command-line options of one letter.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek::security {

// Letters may be joined ("-lut 3600") and stand before, between and after the operands; "--" ends
// them. The value of a letter is the rest of its word, else the next word.
class Options {
 public:
  // `letters` as for getopt: a ":" after a letter says that it takes a value. None for an unknown
  // letter and for a missing value.
  static std::optional<Options> parse(const std::vector<std::string>& arguments,
                                      std::string_view letters);

  bool has(char letter) const { return values_.contains(letter); }
  // The last value given with the letter; none when it was not given.
  std::optional<std::string> value(char letter) const;
  const std::vector<std::string>& operands() const { return operands_; }

 private:
  std::map<char, std::string> values_;
  std::vector<std::string> operands_;
};

}  // namespace tovrek::security
