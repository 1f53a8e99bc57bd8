#include "signing/verify/SealRules.h"

#include <utility>

namespace tovrek::signing {
namespace {

bool isSet(const PlistDictionary& rule, const char* key) {
  const PlistValue* value = rule.find(key);
  return value != nullptr && value->boolean() != nullptr && *value->boolean();
}

}  // namespace

std::optional<SealRules::Rule> SealRules::readRule(const std::string& pattern,
                                                   const PlistValue& value, PatternBudget* budget) {
  Rule rule;
  if (const PlistDictionary* details = value.dictionary()) {
    const PlistValue* weight = details->find("weight");
    if (weight != nullptr) rule.weight = weight->number().value_or(1);
    rule.omits = isSet(*details, "omit");
    rule.lists = !rule.omits && !isSet(*details, "nested");
  } else if (value.boolean() != nullptr) {
    rule.lists = *value.boolean();
    rule.omits = !rule.lists;
  } else {
    return std::nullopt;
  }
  rule.pattern = PathPattern::compile(pattern, budget);
  if (!rule.pattern) return std::nullopt;
  return rule;
}

std::optional<SealRules> SealRules::read(const PlistDictionary& rules) {
  SealRules result;
  PatternBudget budget;
  for (const auto& [pattern, value] : rules) {
    auto rule = readRule(pattern, value, &budget);
    if (!rule) return std::nullopt;
    result.rules_.push_back(*std::move(rule));
  }
  return result;
}

bool SealRules::mustList(const std::string& path) const {
  const Rule* decisive = nullptr;
  for (const Rule& rule : rules_) {
    const bool lighter = decisive != nullptr && rule.weight < decisive->weight;
    const bool loses = decisive != nullptr && rule.weight == decisive->weight && !rule.omits;
    if (lighter || loses) continue;
    if (rule.pattern->isIn(path)) decisive = &rule;
  }
  return decisive != nullptr && decisive->lists;
}

}  // namespace tovrek::signing
