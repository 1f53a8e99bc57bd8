// How much input from outside may hold. Real apps stay far below; the limits keep a small hostile
// file from taking all memory, time or room. Whoever has an app beyond one raises it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tovrek {

struct Limits {
  // --- An archive: its entries ---
  uint64_t archiveEntries = 1'000'000;
  // Of one name: its bytes, half of what the system takes for a path, and folders inside each
  // other.
  uint64_t archiveNameBytes = 2048;
  uint64_t archiveFolders = 500;
  // Entries that take more than these bytes together may not take more than so many times their
  // packed size. What is packed well is text of some megabytes; that much of it is made to do harm.
  uint64_t archiveFreeBytes = uint64_t{1} << 30;
  uint64_t archiveGrowth = 100;

  // --- A property list ---
  // Values, keys included, with what is referred to several times counted each time.
  uint64_t plistValues = 1'000'000;
  // Arrays and dictionaries inside each other.
  uint64_t plistDepth = 512;
  // Bytes of all texts and data together, counted like the values.
  uint64_t plistBytes = uint64_t{1} << 30;

  // --- A document that is kept as a tree: a manifest, policies ---
  uint64_t xmlBytes = uint64_t{64} << 20;
  // Where the encoding is another than one of ASCII with more, in which marks cannot be told from
  // other bytes.
  uint64_t xmlWideBytes = uint64_t{512} << 10;
  // Those that start and end an element, counted each.
  uint64_t xmlTags = 2'000'000;
  // Of one element, in property lists too. The parser's time grows with their square.
  uint64_t xmlAttributes = 1000;

  // --- Rules for what is sealed: steps of all compiled patterns; the usual ten take some 200 ---
  uint64_t patternSteps = 10'000;
  // --- A key file: rounds of hashing. Programs write some thousands, or a million ---
  uint64_t keyRounds = 10'000'000;
};

// A limit by the name of its field. It can be raised from its built-in value to `most`, beyond
// which nothing would hold any more: stack, memory, time.
struct NamedLimit {
  std::string_view name;
  uint64_t Limits::*field;
  uint64_t most;
};
std::span<const NamedLimit> namedLimits();

// Takes a whole number for one of them. An empty text, or what the number should have been.
std::string raiseLimit(const NamedLimit& limit, std::string_view number, Limits* limits);

// The limits of this process: the built-in ones, but for those that $TOVREK_LIMITS raises, words
// "name=number" with blanks between them. A word that is wrong counts for nothing.
Limits limitsInForce();

// Makes these the limits of this process and of the programs that it starts.
void putInForce(const Limits& limits);

}  // namespace tovrek
