// The reader of images, on sound ones and on such as are damaged in one place.
#include "macho/Image.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "tests/support/MachOBuilder.h"

namespace tovrek::macho {
namespace {

using test::kSixArchs;
using test::MachOBuilder;
using test::TestArch;
using Kind = CommandDamage::Kind;

// What the reader tells of an image, whatever its width and byte order.
struct Reading {
  std::string problem;
  size_t commands = 0, segments = 0, sections = 0, libraries = 0;
  std::optional<Kind> damage;
  std::optional<uint32_t> damaged, firstShort;
  uint64_t symbols = 0;
  std::string firstName;
};

std::optional<Reading> read(const std::string& bytes) {
  std::optional<Reading> reading;
  visitImage(std::as_bytes(std::span(bytes)), [&]<class P>(const Image<P>& image) {
    reading = {image.problem,
               image.commands.size(),
               image.segments.size(),
               image.sections.size(),
               image.libraries.size(),
               {},
               {},
               image.firstShort,
               image.symbolCount(),
               std::string(image.symbolName(image.symbol(0)))};
    if (!image.damage) return;
    reading->damage = image.damage->kind;
    reading->damaged = image.damage->command.index;
  });
  return reading;
}

TEST(Image, SoundOnesOfEveryArchitecture) {
  for (const TestArch& arch : kSixArchs) {
    MachOBuilder builder(arch);
    builder.addDylib("/usr/lib/libextra.dylib");
    const auto reading = read(builder.build());
    ASSERT_TRUE(reading) << arch.name;
    EXPECT_EQ(reading->problem, "") << arch.name;
    EXPECT_FALSE(reading->damage || reading->firstShort) << arch.name;
    EXPECT_EQ(reading->commands, builder.commands.size()) << arch.name;
    EXPECT_EQ(reading->libraries, 2u) << arch.name;
    EXPECT_EQ(reading->symbols, builder.symbols.size()) << arch.name;
    size_t sections = 0;
    for (const auto& command : builder.commands) sections += command.sections.size();
    EXPECT_EQ(reading->sections, sections) << arch.name;
    EXPECT_EQ(reading->firstName, builder.strings.c_str() + builder.symbols[0].strx) << arch.name;
  }
  EXPECT_FALSE(read("\xca\xfe\xba\xbe"));
  EXPECT_FALSE(read("\xfe\xed\xfa"));
}

struct DamageCase {
  const char* what;
  std::function<void(MachOBuilder&)> change;
  std::string problem;
  std::optional<Kind> damage;
  int commandsLost = 0;  // of those that the image has
  std::optional<uint32_t> firstShort;
};

TEST(Image, DamageIsNamedAndTheRestIsRead) {
  const auto resize = [](size_t index, uint64_t size) {
    return [=](MachOBuilder& b) {
      b.commands[index].fields["cmdsize"] = size;
      b.commands[index].keepSize = true;
    };
  };
  for (const TestArch& arch : {test::kArm64, test::kPpc, test::kArmv7, test::kPpc64}) {
    MachOBuilder plain(arch);
    plain.build();
    const auto total = static_cast<int>(plain.commands.size());
    const auto last = static_cast<uint32_t>(total - 1);
    const std::string cut =
        fmt::format("load command {} extends past the end all load commands in the file", last);
    const DamageCase cases[] = {
        {"no room for type and size",
         resize(0, 7),
         "load command 0 with size less than 8 bytes",
         Kind::kTooShort,
         total,
         {}},
        {"the last command beyond all", resize(last, 0x200), cut, Kind::kCutShort, 0, {}},
        {"fewer bytes than commands",
         [&](MachOBuilder& b) {
           b.sizeofcmds = static_cast<uint32_t>(plain.commandsEnd() - plain.headerSize() - 4);
         },
         cut,
         Kind::kCutShort,
         0,
         {}},
        {"one command less than counted",
         [&](MachOBuilder& b) { b.ncmds = static_cast<uint32_t>(total + 1); },
         fmt::format("load command {} extends past the end all load commands in the file", total),
         Kind::kNoHeader,
         0,
         {}},
        {"a library's command without its fields",
         [](MachOBuilder& b) { b.addPlain(0x1d, 8); },
         fmt::format("load command {} cmdsize too small for its fields", total),
         {},
         0,
         static_cast<uint32_t>(total)},
        {"an odd size",
         [&](MachOBuilder& b) { b.addPlain(0x99, arch.pointerSize() * 3 + 1); },
         fmt::format("load command {} cmdsize not a multiple of {}", total, arch.pointerSize()),
         {},
         0,
         {}},
        {"a segment of a name alone",
         [&](MachOBuilder& b) { b.addPlain(arch.is64 ? 0x19 : 0x1, 24); },
         fmt::format("load command {} segment cmdsize too small", total),
         {},
         0,
         {}},
        {"more sections than fit",
         [](MachOBuilder& b) { b.segment("__TEXT").fields["nsects"] = 0xffffffff; },
         "load command 1 inconsistent cmdsize for the number of sections",
         {},
         0,
         {}},
        {"symbols outside",
         [](MachOBuilder& b) { b.command(2)["nsyms"] = 0x10000000; },
         "symbol table extends past the end of the file",
         {},
         0,
         {}},
        {"names outside",
         [](MachOBuilder& b) { b.command(2)["strsize"] = 0xffffffff; },
         "string table extends past the end of the file",
         {},
         0,
         {}},
        {"a segment outside",
         [](MachOBuilder& b) { b.segment("__LINKEDIT").fields["filesize"] = 0x7fffffff; },
         "segment __LINKEDIT extends past the end of the file",
         {},
         0,
         {}},
    };
    for (const DamageCase& each : cases) {
      MachOBuilder b(arch);
      each.change(b);
      const auto reading = read(b.build());
      SCOPED_TRACE(fmt::format("{}: {}", arch.name, each.what));
      ASSERT_TRUE(reading);
      EXPECT_EQ(reading->problem, each.problem);
      EXPECT_EQ(reading->damage, each.damage);
      EXPECT_EQ(reading->firstShort, each.firstShort);
      EXPECT_EQ(reading->commands, b.commands.size() - static_cast<size_t>(each.commandsLost));
    }
  }
}

TEST(Image, ATruncationIsToldWhereverItIs) {
  for (const TestArch& arch : kSixArchs) {
    MachOBuilder builder(arch);
    const std::string image = builder.build();
    for (size_t length = 4; length < image.size(); length += length < 0x600 ? 3 : 211) {
      const auto reading = read(image.substr(0, length));
      ASSERT_TRUE(reading);
      EXPECT_NE(reading->problem, "") << arch.name << " " << length;
      EXPECT_EQ(reading->damage.has_value(),
                length >= builder.headerSize() && length < builder.commandsEnd())
          << arch.name << " " << length;
    }
  }
}

}  // namespace
}  // namespace tovrek::macho
