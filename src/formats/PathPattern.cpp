#include "formats/PathPattern.h"

#include <re2/re2.h>

#include <utility>

namespace tovrek {
namespace {

constexpr size_t kMostBytes = 4096;
// Of one compiled pattern with what it caches while it searches.
constexpr int64_t kMostMemory = int64_t{1} << 20;

// As the C library reads extended expressions: bytes, "." is any of them, and "^" and "$" are the
// ends of the path even where it holds line breaks.
re2::RE2::Options extendedSyntax() {
  re2::RE2::Options options(re2::RE2::Latin1);
  options.set_posix_syntax(true);
  options.set_perl_classes(true);
  options.set_word_boundary(true);
  options.set_one_line(true);
  options.set_dot_nl(true);
  options.set_never_capture(true);
  options.set_log_errors(false);
  options.set_max_mem(kMostMemory);
  return options;
}

}  // namespace

std::unique_ptr<const PathPattern> PathPattern::compile(const std::string& pattern,
                                                        PatternBudget* budget) {
  if (pattern.size() > kMostBytes) return nullptr;
  auto expression = std::make_unique<const re2::RE2>(pattern, extendedSyntax());
  if (!expression->ok()) return nullptr;
  const auto steps = static_cast<uint64_t>(expression->ProgramSize());
  if (steps > budget->steps) return nullptr;
  budget->steps -= steps;
  return std::unique_ptr<const PathPattern>(new PathPattern(std::move(expression)));
}

PathPattern::PathPattern(std::unique_ptr<const re2::RE2> expression)
    : expression_(std::move(expression)) {}

PathPattern::~PathPattern() = default;

bool PathPattern::isIn(const std::string& path) const {
  return re2::RE2::PartialMatch(path, *expression_);
}

}  // namespace tovrek
