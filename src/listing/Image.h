// One thin image taken apart as far as it can be read.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "macho/ByteView.h"
#include "macho/ImagePointers.h"
#include "macho/layout.h"

namespace tovrek::listing {

template <class P>
struct Segment {
  macho::macho_segment_command<P> record;
  size_t firstSection = 0, sectionCount = 0;  // in Image::sections
};

// `problem` is the first thing found wrong, and empty for a sound image. The commands before it,
// and tables that lie inside the image, are there all the same.
template <class P>
struct Image {
  macho::ByteView bytes;
  macho::macho_header<P> header;
  std::vector<macho::CommandView> commands;
  std::vector<Segment<P>> segments;
  std::vector<macho::macho_section<P>> sections;  // of all segments, in order
  std::vector<macho::CommandView> libraries;      // commands that load one
  macho::ImagePointers<P> pointers;
  std::string problem;

  explicit Image(macho::ByteView image);

  // The bytes of a section in the image; empty when it has none there.
  macho::ByteView contents(const macho::macho_section<P>& section) const;
  // The record's symbols, as many as lie inside the image.
  macho::macho_nlist<P> symbol(uint64_t index) const;
  uint64_t symbolCount() const;
  // Empty when the name starts outside the string pool.
  std::string_view symbolName(const macho::macho_nlist<P>& symbol) const;

 private:
  void readCommands();
  void readSegment(const macho::CommandView& command);
  void checkTables();
  void note(std::string text) {
    if (problem.empty()) problem = std::move(text);
  }

  macho::ByteView strings_;
};

// Whether the section takes no room in the file.
bool isZeroFill(uint32_t sectionFlags);

// Calls visit(image) with the image read in its own width and byte order. False when the bytes
// do not start with the magic number of a thin image.
template <class Visitor>
bool visitImage(macho::ByteView bytes, Visitor&& visit) {
  const auto tryAs = [&]<class P>() {
    macho::Stored<uint32_t, typename P::Order> magic;
    if (!bytes.read(0, &magic) || magic != P::kMagic) return false;
    visit(Image<P>(bytes));
    return true;
  };
  return tryAs.template operator()<macho::Pointer64<macho::LittleEndian>>() ||
         tryAs.template operator()<macho::Pointer32<macho::LittleEndian>>() ||
         tryAs.template operator()<macho::Pointer64<macho::BigEndian>>() ||
         tryAs.template operator()<macho::Pointer32<macho::BigEndian>>();
}

}  // namespace tovrek::listing
