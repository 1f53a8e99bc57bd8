#include "signing/ResourceRules.h"

#include <algorithm>
#include <initializer_list>

#include "formats/PathPattern.h"

namespace tovrek::signing {
namespace {

constexpr const char* kInvalidRules = "invalid resource specification rule(s)";
constexpr const char* kNestedCodePattern =
    "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
    "Library/(Automator|Spotlight|LoginItems))/";

struct DefaultRule {
  const char* pattern;
  double weight;               // 1: not written
  const char* flag = nullptr;  // "omit", "optional" or none
};

PlistValue weighted(double weight, const char* flag) {
  if (weight == 1) return true;
  PlistDictionary rule;
  if (flag != nullptr) rule.set(flag, true);
  rule.set("weight", weight);
  return rule;
}

ResourceRules defaultRules(std::initializer_list<DefaultRule> rules) {
  PlistDictionary plist;
  for (const DefaultRule& rule : rules) plist.set(rule.pattern, weighted(rule.weight, rule.flag));
  return *ResourceRules::fromPlist(plist);
}

bool flagIn(const PlistDictionary& rule, const char* name) {
  const PlistValue* value = rule.find(name);
  const bool* flag = value == nullptr ? nullptr : value->boolean();
  return flag != nullptr && *flag;
}

}  // namespace

struct ResourceRules::Rule {
  std::unique_ptr<const PathPattern> pattern;
  double weight = 1;
  bool omit = false;
  Verdict verdict = Verdict::kSealed;
};

std::optional<ResourceRules> ResourceRules::fromPlist(const PlistDictionary& rules,
                                                      ErrorText* error) {
  ResourceRules result;
  result.plist_ = rules;
  PatternBudget budget;
  for (const auto& [pattern, value] : rules) {
    auto rule = std::make_shared<Rule>();
    if (const bool* sealed = value.boolean()) {
      rule->omit = !*sealed;
    } else if (const PlistDictionary* details = value.dictionary()) {
      if (const PlistValue* weight = details->find("weight")) {
        rule->weight = weight->number().value_or(1);
      }
      rule->omit = flagIn(*details, "omit");
      if (flagIn(*details, "optional")) rule->verdict = Verdict::kOptional;
      if (flagIn(*details, "nested")) rule->verdict = Verdict::kNested;
    } else {
      fail(error, kInvalidRules);
      return std::nullopt;
    }
    if (rule->omit) rule->verdict = Verdict::kUnsealed;
    rule->pattern = PathPattern::compile(pattern, &budget);
    if (!rule->pattern) {
      fail(error, kInvalidRules);
      return std::nullopt;
    }
    result.rules_.push_back(std::move(rule));
  }
  std::stable_sort(result.rules_.begin(), result.rules_.end(), [](const auto& a, const auto& b) {
    return a->weight != b->weight ? a->weight > b->weight : a->omit && !b->omit;
  });
  return result;
}

ResourceRules::Verdict ResourceRules::match(const std::string& path) const {
  for (const auto& rule : rules_) {
    if (rule->pattern->isIn(path)) return rule->verdict;
  }
  return Verdict::kUnsealed;
}

ResourceRuleSet ResourceRuleSet::forFlatBundles() {
  return {defaultRules({{"^.*", 1},
                        {"^version.plist$", 1},
                        {"^.*\\.lproj/", 1000, "optional"},
                        {"^Base\\.lproj/", 1010},
                        {"^.*\\.lproj/locversion.plist$", 1100, "omit"}}),
          defaultRules({{"^.*", 1},
                        {"^.*\\.lproj/", 1000, "optional"},
                        {"^Base\\.lproj/", 1010},
                        {"^.*\\.lproj/locversion.plist$", 1100, "omit"},
                        {".*\\.dSYM($|/)", 11},
                        {"^(.*/)?\\.DS_Store$", 2000, "omit"},
                        {"^Info\\.plist$", 20, "omit"},
                        {"^PkgInfo$", 20, "omit"},
                        {"^version\\.plist$", 20},
                        {"^embedded\\.provisionprofile$", 20}})};
}

std::optional<ResourceRuleSet> ResourceRuleSet::fromPlist(const PlistDictionary& source,
                                                          ErrorText* error) {
  const PlistDictionary* rules = dictionaryForKey(source, "rules");
  if (rules == nullptr) {
    fail(error, kInvalidRules);
    return std::nullopt;
  }
  PlistDictionary rules2 = *rules;
  if (const PlistDictionary* own = dictionaryForKey(source, "rules2")) {
    rules2 = *own;
  } else {
    PlistDictionary nested;
    nested.set("nested", true);
    nested.set("weight", 0.0);
    rules2.set(kNestedCodePattern, nested);
  }
  auto first = ResourceRules::fromPlist(*rules, error);
  auto second = ResourceRules::fromPlist(rules2, error);
  if (!first || !second) return std::nullopt;
  return ResourceRuleSet{std::move(*first), std::move(*second)};
}

}  // namespace tovrek::signing
