// One thin image taken apart as far as it can be read.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "macho/ByteView.h"
#include "macho/ImagePointers.h"
#include "macho/layout.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {

template <class P>
struct Segment {
  macho_segment_command<P> record;
  CommandView command;
  size_t firstSection = 0, sectionCount = 0;  // in Image::sections; fewer than the record claims
                                              // when the command is too short for them
};

// Why the walk over the load commands ended early.
struct CommandDamage {
  enum class Kind {
    kNoHeader,  // not even type and size lie inside; both are 0 in `command` then
    kTooShort,  // the size has no room for type and size
    kCutShort,  // the command reaches beyond all commands, or beyond the file
  };
  Kind kind;
  CommandView command;
};

// Reads what it can and judges nothing: how much of the damage matters is for the caller to say.
// The commands before the damage, and tables that lie inside the image, are there all the same.
template <class P>
struct Image {
  ByteView bytes;
  macho_header<P> header;             // all 0 when the file ends inside it
  std::vector<CommandView> commands;  // one that is cut short is the last of them, without bytes
  std::vector<Segment<P>> segments;   // of commands long enough for the segment's own fields
  std::vector<macho_section<P>> sections;  // of all segments, in order
  std::vector<CommandView> libraries;      // commands that load one
  ImagePointers<P> pointers;
  std::optional<CommandDamage> damage;
  std::optional<uint32_t> firstShort;  // number of the first command too short for its fields
  std::string problem;                 // in words, the first thing found wrong; empty for none

  explicit Image(ByteView image);

  bool hasHeader() const { return bytes.size() >= sizeof(header); }
  // Where the load commands end as the header has it, which may lie beyond the file.
  uint64_t commandsEnd() const { return sizeof(header) + uint64_t{uint32_t{header.sizeofcmds}}; }
  // The bytes of a section in the image; empty when it has none there.
  ByteView contents(const macho_section<P>& section) const;
  // The record's symbols, as many as lie inside the image.
  macho_nlist<P> symbol(uint64_t index) const;
  uint64_t symbolCount() const;
  // Empty when the name starts outside the string pool.
  std::string_view symbolName(const macho_nlist<P>& symbol) const;

 private:
  void readCommands();
  void readCommand(const CommandView& command);
  void readSegment(const CommandView& command);
  void checkSegments();
  void checkSymbolTable();
  void checkLinkEditData();
  void note(std::string text) {
    if (problem.empty()) problem = std::move(text);
  }

  ByteView strings_;
};

// Whether the section takes no room in the file; isZeroFilled does not know of the kind for
// gigabytes of zeros, which no app of today holds.
bool hasNoContents(uint32_t sectionFlags);

// Calls visit(image) with the image read in its own width and byte order. False when the bytes
// do not start with the magic number of a thin image.
template <class Visitor>
bool visitImage(ByteView bytes, Visitor&& visit) {
  return visitModel(bytes, [&]<class P>() { visit(Image<P>(bytes)); });
}

}  // namespace tovrek::macho
