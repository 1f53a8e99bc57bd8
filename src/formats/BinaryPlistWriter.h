// Writing property lists in their binary form. The same value gives the same bytes, run for run.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "formats/PlistValue.h"

namespace tovrek {

class BinaryPlistWriter {
 public:
  // The whole file. Equal texts, numbers, dates and data are written once.
  std::string write(const PlistValue& value);

 private:
  // A container's own bytes are its marker; what it refers to follows them.
  struct Object {
    std::string bytes;
    std::vector<uint64_t> references;
  };
  struct Visitor;

  uint64_t add(const PlistValue& value);  // answers the object's number
  uint64_t addSimple(std::string bytes);
  uint64_t addText(std::string_view text);
  std::string finish() const;

  // In the order of their numbers, each container before what is in it.
  std::vector<Object> objects_;
  std::unordered_map<std::string, uint64_t> known_;
};

}  // namespace tovrek
