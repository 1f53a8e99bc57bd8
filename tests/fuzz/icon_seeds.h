// Icons to start fuzzing from.
#pragma once

#include <map>
#include <string>

namespace tovrek::test {

// Small files by name: every form that the converter tells apart, sound ones and one for each kind
// of damage.
std::map<std::string, std::string> iconSeeds();

}  // namespace tovrek::test
