#include "engine/dyld_opcodes.h"

#include "engine/MachORebuildErrors.h"
#include "engine/engine_text.h"
#include "engine/leb128_failure.h"

namespace tovrek::macho {
namespace {

using Stream = LoaderOpcodes::Stream;

void refuse(Stream stream, const OpcodeDamage& damage) {
  switch (damage.kind) {
    case OpcodeDamage::Kind::kNone:
      return;
    case OpcodeDamage::Kind::kUnsigned:
      throwUnsignedFailure(damage.number);
    case OpcodeDamage::Kind::kSigned:
      throwSignedFailure(damage.number);
    case OpcodeDamage::Kind::kSegment:
      throw MachORebuildErrors::kOpcodeSegmentIndex;
    case OpcodeDamage::Kind::kOpcode:
      throwf("bad {} opcode 0x{:02X}", stream == Stream::kRebase ? "rebase" : "bind",
             damage.opcode);
  }
}

void walk(Stream stream, ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
          const SiteRunVisitor& visit) {
  LoaderOpcodes codes(stream, opcodes, segmentCount, pointerSize);
  while (codes.next()) {
    // Without a segment named, the first one counts, if there is one.
    if (codes.run().segment >= segmentCount) throw MachORebuildErrors::kOpcodeSegmentIndex;
    visit(codes.run());
  }
  refuse(stream, codes.damage());
}

}  // namespace

void walkRebaseOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                       const SiteRunVisitor& visit) {
  walk(Stream::kRebase, opcodes, segmentCount, pointerSize, visit);
}

void walkBindOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                     const SiteRunVisitor& visit) {
  walk(Stream::kBind, opcodes, segmentCount, pointerSize, visit);
}

}  // namespace tovrek::macho
