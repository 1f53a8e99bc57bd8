#include "macho/LoaderOpcodes.h"

#include <algorithm>

namespace tovrek::macho {

const LoaderOpcodes::Actions& LoaderOpcodes::actionsOf(Stream stream) {
  using enum Action;
  static constexpr Actions kRebase = {
      kEnd,             // REBASE_OPCODE_DONE
      kPass,            // SET_TYPE_IMM
      kSetSegment,      // SET_SEGMENT_AND_OFFSET_ULEB
      kMove,            // ADD_ADDR_ULEB
      kMoveScaled,      // ADD_ADDR_IMM_SCALED
      kRunOfImmediate,  // DO_REBASE_IMM_TIMES
      kRunOfNumber,     // DO_REBASE_ULEB_TIMES
      kOneAndMove,      // DO_REBASE_ADD_ADDR_ULEB
      kRunSkipping,     // DO_REBASE_ULEB_TIMES_SKIPPING_ULEB
      kUnknown,
      kUnknown,
      kUnknown,
      kUnknown,
      kUnknown,
      kUnknown,
      kUnknown,
  };
  static constexpr Actions kBind = {
      kEnd,               // BIND_OPCODE_DONE
      kPass,              // SET_DYLIB_ORDINAL_IMM
      kPassUnsigned,      // SET_DYLIB_ORDINAL_ULEB
      kPass,              // SET_DYLIB_SPECIAL_IMM
      kTakeName,          // SET_SYMBOL_TRAILING_FLAGS_IMM
      kPass,              // SET_TYPE_IMM
      kPassSigned,        // SET_ADDEND_SLEB
      kSetSegment,        // SET_SEGMENT_AND_OFFSET_ULEB
      kMove,              // ADD_ADDR_ULEB
      kOne,               // DO_BIND
      kOneAndMove,        // DO_BIND_ADD_ADDR_ULEB
      kOneAndMoveScaled,  // DO_BIND_ADD_ADDR_IMM_SCALED
      kRunSkipping,       // DO_BIND_ULEB_TIMES_SKIPPING_ULEB
      kUnknown,
      kUnknown,
      kUnknown,
  };
  static constexpr Actions kBindWithThreads = [] {
    Actions actions = kBind;
    actions[13] = kThread;  // BIND_OPCODE_THREADED
    return actions;
  }();
  switch (stream) {
    case Stream::kRebase:
      return kRebase;
    case Stream::kBind:
      return kBind;
    default:
      return kBindWithThreads;
  }
}

LoaderOpcodes::LoaderOpcodes(Stream stream, ByteView opcodes, uint32_t segmentCount,
                             uint32_t pointerSize)
    : actions_(actionsOf(stream)), segmentCount_(segmentCount), pointerSize_(pointerSize) {
  const void* start = opcodes.bytes().data();
  cursor_ = static_cast<const uint8_t*>(start);
  end_ = cursor_ + opcodes.size();
}

bool LoaderOpcodes::next() {
  while (cursor_ != end_) {
    const uint8_t code = *cursor_++;
    const Action action = actions_[code >> 4];
    if (action == Action::kUnknown) {
      stop({OpcodeDamage::Kind::kOpcode, Leb128::kRead, static_cast<uint8_t>(code & 0xf0)});
      break;
    }
    const Step step = perform(action, code & 0x0f);
    if (step == Step::kRun) return true;
    if (step == Step::kStop) break;
  }
  cursor_ = end_;
  return false;
}

LoaderOpcodes::Step LoaderOpcodes::perform(Action action, uint8_t immediate) {
  const uint64_t scaled = uint64_t{immediate} * pointerSize_;
  uint64_t number = 0, skip = 0;
  int64_t addend = 0;
  switch (action) {
    case Action::kPass:
      return Step::kOn;
    case Action::kPassUnsigned:
      return take(&number) ? Step::kOn : Step::kStop;
    case Action::kPassSigned: {
      const Leb128 status = readSleb128(cursor_, end_, &addend);
      return status == Leb128::kRead ? Step::kOn : stop({OpcodeDamage::Kind::kSigned, status, 0});
    }
    case Action::kTakeName:
      return takeName();
    case Action::kSetSegment:
      return setSegment(immediate);
    case Action::kMove:
      // Offsets wrap: distances backwards are written as large numbers.
      if (!take(&number)) return Step::kStop;
      offset_ += number;
      return Step::kOn;
    case Action::kMoveScaled:
      offset_ += scaled;
      return Step::kOn;
    case Action::kRunOfImmediate:
      return makeRun(immediate, 0);
    case Action::kRunOfNumber:
      return take(&number) ? makeRun(number, 0) : Step::kStop;
    case Action::kOne:
      return makeRun(1, 0);
    case Action::kOneAndMove:
      return take(&number) ? makeRun(1, number) : Step::kStop;
    case Action::kOneAndMoveScaled:
      return makeRun(1, scaled);
    case Action::kRunSkipping:
      return take(&number) && take(&skip) ? makeRun(number, skip) : Step::kStop;
    case Action::kThread:
      isThreaded_ = true;
      // The code that starts the table says how large it is; others apply it.
      return immediate != 0 || take(&number) ? Step::kOn : Step::kStop;
    default:
      return Step::kStop;
  }
}

LoaderOpcodes::Step LoaderOpcodes::makeRun(uint64_t count, uint64_t skip) {
  run_.offset = offset_;
  run_.count = count;
  run_.stride = pointerSize_ + skip;
  run_.isThreaded = isThreaded_;
  offset_ += count * run_.stride;
  return Step::kRun;
}

// A name without an end is the end of the stream.
LoaderOpcodes::Step LoaderOpcodes::takeName() {
  const uint8_t* nul = std::find(cursor_, end_, uint8_t{0});
  const void* start = cursor_;
  run_.name = {static_cast<const char*>(start), static_cast<size_t>(nul - cursor_)};
  cursor_ = nul == end_ ? end_ : nul + 1;
  return Step::kOn;
}

LoaderOpcodes::Step LoaderOpcodes::setSegment(uint8_t segment) {
  if (segment >= segmentCount_) return stop({OpcodeDamage::Kind::kSegment, Leb128::kRead, 0});
  run_.segment = segment;
  run_.hasSegment = true;
  return take(&offset_) ? Step::kOn : Step::kStop;
}

LoaderOpcodes::Step LoaderOpcodes::stop(OpcodeDamage damage) {
  damage_ = damage;
  return Step::kStop;
}

bool LoaderOpcodes::take(uint64_t* number) {
  const Leb128 status = readUleb128(cursor_, end_, number);
  if (status != Leb128::kRead) stop({OpcodeDamage::Kind::kUnsigned, status, 0});
  return status == Leb128::kRead;
}

}  // namespace tovrek::macho
