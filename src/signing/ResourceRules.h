// Which files of a bundle are sealed, and how strictly.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek::signing {

// Rules are POSIX extended regular expressions searched in paths relative to the bundle, within
// the bounds of PathPattern. Of those
// that match, the heaviest counts; of equally heavy ones an omitting one.
class ResourceRules {
 public:
  enum class Verdict {
    kUnsealed,  // no rule, or one that omits
    kSealed,
    kOptional,  // sealed, and may be missing later
    kNested,    // code with a signature of its own; flat bundles seal it as the file it is
  };

  ResourceRules() = default;
  // From a "rules" dictionary: pattern to true, or to {weight, omit, optional, nested}.
  static std::optional<ResourceRules> fromPlist(const PlistDictionary& rules,
                                                ErrorText* error = nullptr);
  Verdict match(const std::string& path) const;
  const PlistDictionary& plist() const { return plist_; }

 private:
  struct Rule;
  PlistDictionary plist_;
  std::vector<std::shared_ptr<const Rule>> rules_;  // the one that counts first
};

// The two generations of rules that a seal holds: old systems read the first.
struct ResourceRuleSet {
  ResourceRules rules;
  ResourceRules rules2;

  // What bundles without Contents or Resources folders (all of iOS) get.
  static ResourceRuleSet forFlatBundles();
  // From a property list with "rules" and perhaps "rules2", such as a seal or a rules
  // file. Without "rules2", "rules" serve for both, and code folders that they leave out are
  // nested code. None, with the reason, when rules are missing or make no sense.
  static std::optional<ResourceRuleSet> fromPlist(const PlistDictionary& source,
                                                  ErrorText* error = nullptr);
};

}  // namespace tovrek::signing
