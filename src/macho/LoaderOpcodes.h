// The compressed loader information (LC_DYLD_INFO): byte codes that name the places which the
// loader slides or binds, after the published format in <mach-o/loader.h>.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "macho/ByteView.h"
#include "macho/leb128.h"

namespace tovrek::macho {

// `count` places, `stride` bytes apart, from `offset` in the segment on.
struct SiteRun {
  uint32_t segment = 0;
  uint64_t offset = 0, count = 0, stride = 0;
  bool hasSegment = false;  // false: the codes named no segment so far
  std::string_view name;    // of the symbol to bind
  // The places make a table of symbols instead, to which pointers carry numbers.
  bool isThreaded = false;
};

// Why a stream could not be read further.
struct OpcodeDamage {
  enum class Kind {
    kNone,
    kUnsigned,  // an unsigned number, see `number`
    kSigned,    // a signed one
    kSegment,   // the number of no segment
    kOpcode,    // no code of the stream, see `opcode`
  };
  Kind kind = Kind::kNone;
  Leb128 number = Leb128::kRead;
  uint8_t opcode = 0;
};

// Reads a stream from run to run.
class LoaderOpcodes {
 public:
  enum class Stream { kRebase, kBind, kBindWithThreads };

  LoaderOpcodes(Stream stream, ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize);

  // Moves on to the next run. False at the end of the stream, and where it is damaged.
  bool next();
  const SiteRun& run() const { return run_; }
  const OpcodeDamage& damage() const { return damage_; }
  // Whether the stream has told so far that binds are threaded.
  bool isThreaded() const { return isThreaded_; }

 private:
  // What to do at a code; those of all streams come down to these.
  enum class Action : uint8_t {
    kEnd,
    kPass,
    kPassUnsigned,
    kPassSigned,
    kTakeName,
    kSetSegment,
    kMove,
    kMoveScaled,
    kRunOfImmediate,
    kRunOfNumber,
    kOne,
    kOneAndMove,
    kOneAndMoveScaled,
    kRunSkipping,
    kThread,
    kUnknown,
  };
  using Actions = std::array<Action, 16>;
  enum class Step { kOn, kRun, kStop };

  static const Actions& actionsOf(Stream stream);
  Step perform(Action action, uint8_t immediate);
  Step makeRun(uint64_t count, uint64_t skip);
  Step takeName();
  Step setSegment(uint8_t segment);
  Step stop(OpcodeDamage damage);
  // Answers whether there is a number; notes the damage otherwise.
  bool take(uint64_t* number);

  const Actions& actions_;
  const uint8_t* cursor_;
  const uint8_t* end_;
  uint32_t segmentCount_;
  uint32_t pointerSize_;
  SiteRun run_;
  uint64_t offset_ = 0;
  bool isThreaded_ = false;
  OpcodeDamage damage_;
};

}  // namespace tovrek::macho
