#include "tests/support/LargeImage.h"

#include <fmt/format.h>

namespace tovrek::test {
namespace {

uint64_t roundedUp(uint64_t value, uint64_t unit) {
  return (value + unit - 1) / unit * unit;
}

// A table at the end of the file, at a multiple of 8.
uint64_t append(std::string* file, const std::string& table) {
  file->resize(roundedUp(file->size(), 8));
  const uint64_t at = file->size();
  *file += table;
  return at;
}

std::string uleb(uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
  return bytes + static_cast<char>(value);
}

struct Names {
  std::string symbols, strings;
};

Names makeNames(const LargeImage& image, uint64_t address) {
  Names names{{}, std::string(1, '\0')};
  const std::string padding(2, '\0'), value = stored(image.arch, address, image.arch.pointerSize());
  for (uint32_t i = 0; i < image.symbols + image.undefined; ++i) {
    const bool defined = i < image.symbols;
    names.symbols += stored(image.arch, names.strings.size(), 4) + (defined ? '\x0f' : '\x01') +
                     (defined ? '\x01' : '\0') + padding + value;
    names.strings += fmt::format("_symbol{:08}", i) + '\0';
  }
  names.strings.resize(roundedUp(names.strings.size(), 8));
  return names;
}

std::string makeRelocations(MachOBuilder& builder, uint32_t count, bool isExtern) {
  const uint32_t width = builder.arch.is64 ? 3 : 2;
  std::string entries;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t symbol = isExtern ? i / 2 & 0xffffff : 1;
    // Every address is the start of the data: which one it is makes no difference.
    const uint64_t base = builder.arch.is64 ? 0 : builder.section("__DATA", 0)["addr"];
    entries += stored(builder.arch, base, 4) +
               stored(builder.arch, builder.relocationInfo(symbol, false, width, isExtern, 0), 4);
  }
  return entries;
}

}  // namespace

std::string LargeImage::build() const {
  MachOBuilder builder(arch);
  const uint64_t p = arch.pointerSize();
  const uint64_t textSize = roundedUp(MachOBuilder::kTextOffset + codeSize, MachOBuilder::kPage) +
                            roundedUp(uint64_t{initializerSections} * 80, MachOBuilder::kPage);
  const uint64_t textStart = textSize - roundedUp(codeSize, MachOBuilder::kPage);
  const uint64_t dataSize = roundedUp((initializers + 2) * p, MachOBuilder::kPage);
  const uint64_t text = builder.textAddress(), data = text + textSize;

  std::string file(textSize + dataSize, '\0');
  for (uint64_t i = textStart; i < textSize; ++i) file[i] = static_cast<char>(i * 7);
  const std::string target = stored(arch, text + textStart, static_cast<uint32_t>(p));
  for (uint32_t i = 0; i < initializers; ++i) file.replace(textSize + i * p, p, target);

  TestRecord& code = builder.segment("__TEXT").fields;
  code["vmsize"] = code["filesize"] = textSize;
  TestRecord& codeSection = builder.section("__TEXT", 0);
  codeSection["addr"] = text + textStart;
  codeSection["offset"] = textStart;
  codeSection["size"] = codeSize;
  builder.command(0x80000028)["entryoff"] = textStart;
  TestRecord& encryption = builder.command(arch.is64 ? 0x2c : 0x21);
  encryption["cryptoff"] = textStart;

  TestCommand& variables = builder.segment("__DATA");
  variables.fields["vmaddr"] = data;
  variables.fields["fileoff"] = textSize;
  variables.fields["filesize"] = dataSize;
  variables.fields["vmsize"] = dataSize + MachOBuilder::kPage;
  variables.sections[0]["addr"] = data;
  variables.sections[0]["offset"] = textSize;
  variables.sections[0]["size"] = initializers * p;
  variables.sections[1]["addr"] = data + initializers * p;
  variables.sections[1]["offset"] = textSize + initializers * p;
  variables.sections[2]["addr"] = data + dataSize;
  for (uint32_t i = 1; i < initializerSections; ++i) {
    variables.sections.push_back(variables.sections[0]);
  }

  // The link-edit tables, one behind the other.
  const Names names = makeNames(*this, text + textStart);
  builder.rebase = std::string("\x11\x22\x00\x60", 4) + uleb(initializers) + '\0';
  builder.bind = std::string(1, '\0');
  builder.command(0x80000022)["rebase_off"] = append(&file, builder.rebase);
  builder.command(0x80000022)["bind_off"] = append(&file, builder.bind);
  builder.command(0x2)["symoff"] = append(&file, names.symbols);
  builder.command(0x2)["nsyms"] = symbols + undefined;
  TestRecord& dynamic = builder.command(0xb);
  dynamic["nextdefsym"] = dynamic["iundefsym"] = symbols;
  dynamic["nundefsym"] = undefined;
  dynamic["locreloff"] = append(&file, makeRelocations(builder, localRelocations, false));
  dynamic["nlocrel"] = localRelocations;
  dynamic["extreloff"] = append(&file, makeRelocations(builder, externalRelocations, true));
  dynamic["nextrel"] = externalRelocations;
  dynamic["indirectsymoff"] = append(&file, std::string(8, '\0'));
  for (uint32_t cmd : {0x26U, 0x29U, 0x1eU, 0x2bU}) {
    builder.command(cmd)["dataoff"] = append(&file, std::string(16, '\0'));
  }
  builder.command(0x2)["stroff"] = append(&file, names.strings);
  builder.command(0x2)["strsize"] = names.strings.size();
  file.resize(roundedUp(file.size(), MachOBuilder::kPage));

  TestRecord& linkEdit = builder.segment("__LINKEDIT").fields;
  linkEdit["fileoff"] = textSize + dataSize;
  linkEdit["filesize"] = linkEdit["vmsize"] = file.size() - textSize - dataSize;
  linkEdit["vmaddr"] = data + dataSize + MachOBuilder::kPage;
  patch(&file, 0, builder.buildCommands());
  return file;
}

LargeImage proportionedImage(const TestArch& arch, uint64_t size) {
  LargeImage image;
  image.arch = arch;
  // A symbol and its name take 32 bytes.
  image.symbols = static_cast<uint32_t>(size / 400);
  image.undefined = image.symbols / 4;
  image.initializers = static_cast<uint32_t>(size / 1000);
  image.codeSize = size - size / 10 - size / 125;
  return image;
}

}  // namespace tovrek::test
