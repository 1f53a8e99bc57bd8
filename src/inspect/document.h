// A report as people read it, the same for the terminal and for a page: headings, and under each
// names with values.
#pragma once

#include <string>
#include <vector>

#include "inspect/model.h"

namespace tovrek::inspect {

struct Field {
  std::string name;
  std::vector<std::string> values;  // one line each
};

struct Section {
  std::string title;
  std::vector<Field> fields{};
  std::vector<Section> parts{};

  // Leaves out what is empty.
  void add(std::string name, std::string value);
  void add(std::string name, std::vector<std::string> values);
  bool isEmpty() const { return fields.empty() && parts.empty(); }
};

// What is known of an input, in the order in which people ask.
std::vector<Section> describe(const Subject& subject);
// "2 errors, 1 warning", or "nothing found against it".
std::string verdictText(const Findings& findings);

}  // namespace tovrek::inspect
