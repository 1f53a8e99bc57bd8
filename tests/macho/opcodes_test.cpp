// Streams of loader opcodes, written after the published format.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "macho/LoaderOpcodes.h"

namespace tovrek::macho {
namespace {

using namespace std::string_literals;
using Damage = OpcodeDamage::Kind;
using Stream = LoaderOpcodes::Stream;

struct Case {
  Stream stream;
  std::string opcodes;
  std::string runs;  // "segment:offset*count+stride=name " for each; "?" without a segment
  Damage damage = Damage::kNone;
  Leb128 number = Leb128::kRead;
  uint8_t opcode = 0;
};

std::string text(const SiteRun& run) {
  return fmt::format("{}:{:#x}*{:#x}+{}{}{}{} ", run.hasSegment ? std::to_string(run.segment) : "?",
                     run.offset, run.count, run.stride, run.name.empty() ? "" : "=", run.name,
                     run.isThreaded ? "#" : "");
}

void expectRuns(const Case& each, uint32_t segments = 3) {
  SCOPED_TRACE(testing::PrintToString(each.opcodes));
  LoaderOpcodes codes(each.stream, std::as_bytes(std::span(each.opcodes)), segments, 8);
  std::string runs;
  while (codes.next()) runs += text(codes.run());
  EXPECT_EQ(runs, each.runs);
  EXPECT_EQ(codes.damage().kind, each.damage);
  EXPECT_EQ(codes.damage().number, each.number);
  EXPECT_EQ(codes.damage().opcode, each.opcode);
  EXPECT_FALSE(codes.next()) << "the end stays the end";
}

TEST(LoaderOpcodes, RunsOfRebaseStreams) {
  const Case cases[] = {
      {Stream::kRebase, ""s, ""},
      {Stream::kRebase, "\x11\x22\x10\x52\x51\x00\x51"s, "2:0x10*0x2+8 2:0x20*0x1+8 "},
      {Stream::kRebase, "\x20\x04\x60\x03\x51"s, "0:0x4*0x3+8 0:0x1c*0x1+8 "},
      {Stream::kRebase, "\x20\x00\x30\x40\x42\x70\x18\x51"s, "0:0x50*0x1+32 0:0x70*0x1+8 "},
      {Stream::kRebase, "\x20\x00\x80\x02\x08\x51"s, "0:0x0*0x2+16 0:0x20*0x1+8 "},
      // Backwards by 16, as a number of 64 bits.
      {Stream::kRebase, "\x20\x20\x30\xf0\xff\xff\xff\xff\xff\xff\xff\xff\x01\x51"s,
       "0:0x10*0x1+8 "},
      {Stream::kRebase, "\x51"s, "?:0x0*0x1+8 "},
  };
  for (const Case& each : cases) expectRuns(each);
}

TEST(LoaderOpcodes, RunsOfBindStreams) {
  const std::string bind = "\x11\x40_a\0\x51\x60\x7f\x71\x08\x90"s;
  const Case cases[] = {
      {Stream::kBind, bind + "\x40_bc\0\x20\x81\x01\x3e\xa0\x10\xb1\x90"s,
       "1:0x8*0x1+8=_a 1:0x10*0x1+24=_bc 1:0x28*0x1+16=_bc 1:0x38*0x1+8=_bc "},
      {Stream::kBind, bind + "\x80\x10\xc0\x02\x08\x00\x90"s, "1:0x8*0x1+8=_a 1:0x20*0x2+16=_a "},
      {Stream::kBind, bind + "\x40no end"s, "1:0x8*0x1+8=_a "},
      {Stream::kBindWithThreads, bind + "\xd0\x02\x90\x40_b\0\x90\xd1\x70\x00\x90"s,
       "1:0x8*0x1+8=_a 1:0x10*0x1+8=_a# 1:0x18*0x1+8=_b# 0:0x0*0x1+8=_b# "},
  };
  for (const Case& each : cases) expectRuns(each);
}

TEST(LoaderOpcodes, DamageEndsTheStream) {
  const std::string tooBig = "\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f"s;
  const Case cases[] = {
      {Stream::kRebase, "\x51\x90\x51"s, "?:0x0*0x1+8 ", Damage::kOpcode, Leb128::kRead, 0x90},
      {Stream::kRebase, "\xff"s, "", Damage::kOpcode, Leb128::kRead, 0xf0},
      {Stream::kBind, "\xd1"s, "", Damage::kOpcode, Leb128::kRead, 0xd0},
      {Stream::kBindWithThreads, "\xe0"s, "", Damage::kOpcode, Leb128::kRead, 0xe0},
      {Stream::kBindWithThreads, "\xd0"s, "", Damage::kUnsigned, Leb128::kCutOff},
      {Stream::kRebase, "\x23"s, "", Damage::kSegment},
      {Stream::kBind, "\x73\x00"s, "", Damage::kSegment},
      {Stream::kRebase, "\x20"s, "", Damage::kUnsigned, Leb128::kCutOff},
      {Stream::kRebase, "\x20" + tooBig, "", Damage::kUnsigned, Leb128::kTooBig},
      {Stream::kRebase, "\x80\x01"s, "", Damage::kUnsigned, Leb128::kCutOff},
      {Stream::kBind, "\x60\x80"s, "", Damage::kSigned, Leb128::kCutOff},
      {Stream::kBind, "\x60" + std::string(10, '\x80') + "\x01", "", Damage::kSigned,
       Leb128::kTooBig},
  };
  for (const Case& each : cases) expectRuns(each);
  expectRuns({Stream::kBind, "\x70\x00"s, "", Damage::kSegment}, 0);
}

}  // namespace
}  // namespace tovrek::macho
