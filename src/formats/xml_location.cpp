#include "formats/xml_location.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "formats/xml_text.h"

namespace tovrek {
namespace {

struct Step {
  bool isAnywhere = false;
  std::string name{};   // "*" for all
  size_t position = 0;  // counted from 1; 0 for any
  std::string attribute{}, value{};
};

bool isPlainName(const std::string& name) {
  return name.find(':') == name.npos && isXmlName(name);
}

// What stands between the brackets.
bool readPredicate(std::string_view text, Step* step) {
  if (text.starts_with('@')) {
    const size_t equals = text.find('=');
    if (equals == text.npos) return false;
    step->attribute = text.substr(1, equals - 1);
    const std::string_view literal = text.substr(equals + 1);
    if (literal.size() < 2 || (literal.front() != '\'' && literal.front() != '"')) return false;
    step->value = literal.substr(1, literal.size() - 2);
    return literal.front() == literal.back() &&
           step->value.find(literal.front()) == std::string::npos && isPlainName(step->attribute);
  }
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), step->position);
  return fault == std::errc() && end == text.data() + text.size() && step->position > 0;
}

// Takes a step from the front of the path.
bool readStep(std::string_view* path, Step* step) {
  const size_t nameEnd = std::min(path->find_first_of("/["), path->size());
  step->name = path->substr(0, nameEnd);
  path->remove_prefix(nameEnd);
  if (path->starts_with('[')) {
    // A literal may hold any sign.
    size_t end = 1;
    char quote = 0;
    for (; end < path->size() && (quote != 0 || (*path)[end] != ']'); ++end) {
      const char c = (*path)[end];
      if (quote == 0 && (c == '\'' || c == '"'))
        quote = c;
      else if (c == quote)
        quote = 0;
    }
    if (end == path->size() || !readPredicate(path->substr(1, end - 1), step)) return false;
    path->remove_prefix(end + 1);
  }
  return step->name == "*" || isPlainName(step->name);
}

std::optional<std::vector<Step>> readPath(std::string_view path) {
  if (path.starts_with("./")) path.remove_prefix(1);
  std::vector<Step> steps;
  if (path == "/") return steps;
  if (path.empty()) return std::nullopt;
  bool isAnywhere = path.starts_with("//");
  path.remove_prefix(isAnywhere ? 2 : path.starts_with('/') ? 1 : 0);
  for (;;) {
    steps.push_back({.isAnywhere = isAnywhere});
    isAnywhere = false;
    if (!readStep(&path, &steps.back())) return std::nullopt;
    if (path.empty()) return steps;
    if (!path.starts_with('/')) return std::nullopt;
    path.remove_prefix(1);
  }
}

bool hasAttribute(const XmlTree& element, const Step& step) {
  return step.attribute.empty() ||
         std::ranges::find(element.attributes, std::pair(step.attribute, step.value)) !=
             element.attributes.end();
}

void take(const Step& step, const XmlTree& around, std::vector<XmlTree*>* found) {
  size_t position = 0;
  for (const auto& child : around.children) {
    if (!child->isElement()) continue;
    const bool isNamed = step.name == "*" || (child->name == step.name && !child->hasNamespace);
    if (isNamed && hasAttribute(*child, step)) {
      ++position;
      if (step.position == 0 || step.position == position) found->push_back(child.get());
    }
    if (step.isAnywhere) take(step, *child, found);
  }
}

}  // namespace

std::optional<std::vector<XmlTree*>> elementsAt(XmlTree& document, std::string_view path) {
  const auto steps = readPath(path);
  if (!steps) return std::nullopt;
  std::vector<XmlTree*> at = {&document};
  if (steps->empty()) at.clear();
  for (const Step& step : *steps) {
    std::vector<XmlTree*> found;
    for (const XmlTree* around : at) take(step, *around, &found);
    at = std::move(found);
  }
  return at;
}

}  // namespace tovrek
