// Reports about inputs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inspect/model.h"

namespace tovrek::inspect {

struct TextStyle {
  bool colours = false;
};
// All about one input.
std::string textReport(const Subject& subject, const TextStyle& style);
// One line for each input, those that end first on top. With `withinDays` only those that have an
// end within as many days from `now`, or that are found fault with.
std::string tableReport(const std::vector<Subject>& subjects, double now,
                        std::optional<int> withinDays, const TextStyle& style);
// One JSON document, as docs/inspect.md describes it.
std::string jsonReport(const std::vector<Subject>& subjects, double now);
// One page for a browser, which loads nothing else.
std::string htmlReport(const std::vector<Subject>& subjects, double now);

}  // namespace tovrek::inspect
