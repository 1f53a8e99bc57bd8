// An image's load commands in order, with the engine's codes for the damage that ends them.
#pragma once

#include <algorithm>
#include <span>

#include "engine/MachORebuildErrors.h"
#include "macho/Image.h"

namespace tovrek::macho {

// The code for the damage at which reading the commands has ended; there must be one.
template <class P>
MachORebuildErrors damageCode(const Image<P>& image) {
  using Kind = CommandDamage::Kind;
  const auto& [kind, command] = *image.damage;
  // A command without room for its own two words would lead nowhere, or into the next one.
  if (kind == Kind::kTooShort) return MachORebuildErrors::kCommandBeyondCommands;
  const uint64_t end =
      kind == Kind::kNoHeader ? command.offset + sizeof(macho_load_command<P>) : command.end();
  return end > image.commandsEnd() ? MachORebuildErrors::kCommandBeyondCommands
                                   : MachORebuildErrors::kCommandBeyondFile;
}

// The commands that lie inside the file and all commands from end to end.
template <class P>
std::span<const CommandView> wholeCommands(const Image<P>& image) {
  const std::span all(image.commands);
  const bool cut = image.damage && image.damage->kind == CommandDamage::Kind::kCutShort;
  return cut ? all.first(all.size() - 1) : all;
}

// Visits the whole commands, and throws when they are not all: what the visitor throws at one of
// them comes before the damage behind it.
template <class P, class Visitor>
void visitCommands(const Image<P>& image, Visitor&& visit) {
  for (const CommandView& command : wholeCommands(image)) visit(command);
  if (image.damage) throw damageCode(image);
}

// Throws when the command is too short for its own fields.
template <class P>
void requireFields(const Image<P>& image, const CommandView& command) {
  if (command.index == image.firstShort) throw MachORebuildErrors::kCommandBeyondCommands;
}

// The segment of such a command; null when the command is too short for its fields.
template <class P>
const Segment<P>* segmentOf(const Image<P>& image, const CommandView& command) {
  const auto found =
      std::ranges::lower_bound(image.segments, command.index, {},
                               [](const Segment<P>& segment) { return segment.command.index; });
  const bool there = found != image.segments.end() && found->command.index == command.index;
  return there ? &*found : nullptr;
}

// The sections that could be read.
template <class P>
std::span<const macho_section<P>> sectionsOf(const Image<P>& image, const Segment<P>& segment) {
  return std::span(image.sections).subspan(segment.firstSection, segment.sectionCount);
}

}  // namespace tovrek::macho
