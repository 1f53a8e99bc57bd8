#include "host/limits.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

namespace tovrek {
namespace {

constexpr const char* kLimitsVariable = "TOVREK_LIMITS";

constexpr uint64_t operator""_M(unsigned long long count) {
  return count * 1'000'000;
}
constexpr uint64_t operator""_MiB(unsigned long long count) {
  return uint64_t{count} << 20;
}

constexpr std::array<NamedLimit, 14> kNamedLimits = {{
    {"archiveEntries", &Limits::archiveEntries, 100_M},
    // A path may have 4,096 bytes with the scratch folder in front.
    {"archiveNameBytes", &Limits::archiveNameBytes, 3800},
    {"archiveFolders", &Limits::archiveFolders, 1000},
    {"archiveFreeBytes", &Limits::archiveFreeBytes, 1024 * 1024_MiB},
    {"archiveGrowth", &Limits::archiveGrowth, 10'000},
    {"plistValues", &Limits::plistValues, 100_M},
    // Values are gone through by functions that call themselves.
    {"plistDepth", &Limits::plistDepth, 2048},
    {"plistBytes", &Limits::plistBytes, 64 * 1024_MiB},
    {"xmlBytes", &Limits::xmlBytes, 1024_MiB},
    {"xmlWideBytes", &Limits::xmlWideBytes, 8_MiB},
    {"xmlTags", &Limits::xmlTags, 100_M},
    {"xmlAttributes", &Limits::xmlAttributes, 20'000},
    {"patternSteps", &Limits::patternSteps, 1_M},
    {"keyRounds", &Limits::keyRounds, 1000_M},
}};

void takeLimit(std::string_view word, Limits* limits) {
  const size_t sign = word.find('=');
  const auto known = std::ranges::find(kNamedLimits, word.substr(0, sign), &NamedLimit::name);
  if (known != kNamedLimits.end() && sign != word.npos)
    raiseLimit(*known, word.substr(sign + 1), limits);
}

}  // namespace

std::span<const NamedLimit> namedLimits() {
  return kNamedLimits;
}

std::string raiseLimit(const NamedLimit& limit, std::string_view number, Limits* limits) {
  const uint64_t least = Limits{}.*limit.field;
  uint64_t value = 0;
  const char* end = number.data() + number.size();
  const auto [stop, error] = std::from_chars(number.data(), end, value);
  if (error != std::errc() || stop != end || value < least || value > limit.most) {
    return "a whole number from " + std::to_string(least) + " to " + std::to_string(limit.most);
  }
  limits->*limit.field = value;
  return "";
}

Limits limitsInForce() {
  Limits limits;
  const char* raised = std::getenv(kLimitsVariable);
  std::string_view rest = raised == nullptr ? "" : raised;
  while (!rest.empty()) {
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
    takeLimit(word, &limits);
  }
  return limits;
}

void putInForce(const Limits& limits) {
  const Limits builtIn;
  std::string words;
  for (const NamedLimit& limit : kNamedLimits) {
    const uint64_t value = limits.*limit.field;
    if (value == builtIn.*limit.field) continue;
    words += (words.empty() ? "" : " ") + std::string(limit.name) + "=" + std::to_string(value);
  }
  if (words.empty()) {
    ::unsetenv(kLimitsVariable);
  } else {
    ::setenv(kLimitsVariable, words.c_str(), 1);
  }
}

}  // namespace tovrek
