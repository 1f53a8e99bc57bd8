// Turns a linked arm64 image with plain pointers into what newer linkers write, byte by byte from
// the published formats.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tovrek::test {

class PlainImage {
 public:
  // `tables` is what `llvm-objdump --rebase --bind` says of the image.
  PlainImage(std::string image, const std::string& tables);

  // The image with chained fix-ups of the pointer and import formats. Every second pointer of a
  // format that knows authentication is authenticated.
  std::string chained(uint16_t pointerFormat, uint32_t importsFormat) const;

  // Rewrites each method list of classes and categories that the listing of otool names. The
  // pointers to the selectors take the room that becomes free.
  void makeMethodListsRelative(const std::string& listing);

  std::string bytes;

 private:
  struct Segment {
    uint64_t address, size, offset;
  };
  uint64_t number(uint64_t offset, uint32_t width) const;
  uint64_t offsetOf(uint64_t address) const;
  std::string fixups(uint16_t pointerFormat, uint32_t importsFormat) const;
  uint64_t encoded(uint16_t format, uint64_t address, bool authenticated) const;

  std::vector<Segment> segments_;
  uint64_t dyldInfo_ = 0;                  // where the command lies
  std::map<uint64_t, uint32_t> pointers_;  // address and import plus 1, or 0 for a rebase
  std::vector<std::string> imports_;
};

}  // namespace tovrek::test
