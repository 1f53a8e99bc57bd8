// The rules inside a seal, as the judge reads them: by code of its own, so that a fault of the
// signer's does not excuse itself.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "formats/PathPattern.h"
#include "formats/PlistValue.h"

namespace tovrek::signing {

// Which files of a bundle a seal has to list. Patterns are POSIX extended regular expressions,
// searched in the path from the bundle, within the bounds of PathPattern; the heaviest that matches
// decides, omission winning a tie.
class SealRules {
 public:
  // From the "rules" or "rules2" of a seal; none when they are not of the known form.
  static std::optional<SealRules> read(const PlistDictionary& rules);

  // Whether a file at this path must be listed. Nested code is judged by its own signature.
  bool mustList(const std::string& path) const;

 private:
  struct Rule {
    std::unique_ptr<const PathPattern> pattern;
    double weight = 1;
    bool lists = true;  // neither omits nor leaves it to nested code
    bool omits = false;
  };
  static std::optional<Rule> readRule(const std::string& pattern, const PlistValue& value,
                                      PatternBudget* budget);

  std::vector<Rule> rules_;
};

}  // namespace tovrek::signing
