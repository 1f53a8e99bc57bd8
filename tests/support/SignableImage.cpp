#include "tests/support/SignableImage.h"

#include <initializer_list>

namespace tovrek::test {
namespace {

constexpr uint64_t kPage = MachOBuilder::kPage, kAddress = 0x4000;

std::string name16(std::string name) {
  name.resize(16);
  return name;
}

// Load commands of one architecture.
struct Commands {
  TestArch arch;

  std::string numbers(std::initializer_list<uint64_t> values, uint32_t width = 4) const {
    std::string bytes;
    for (const uint64_t value : values) bytes += stored(arch, value, width);
    return bytes;
  }
  std::string segment(const char* name, uint64_t offset, uint64_t size, uint32_t sections) const {
    const uint32_t length = (arch.is64 ? 72 : 56) + sections * (arch.is64 ? 80 : 68);
    const uint64_t room = (size + kPage - 1) / kPage * kPage;
    return numbers({arch.is64 ? 0x19U : 1U, length}) + name16(name) +
           numbers({kAddress + offset, room, offset, size}, arch.pointerSize()) +
           numbers({5, 5, sections, 0});
  }
  std::string section(const char* name, uint64_t offset, uint64_t size) const {
    return name16(name) + name16("__TEXT") +
           numbers({kAddress + offset, size}, arch.pointerSize()) + numbers({offset}) +
           std::string(arch.is64 ? 28 : 24, '\0');
  }
};

uint64_t numberAt(const std::string& bytes, size_t at, size_t width, bool bigEndian = false) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) {
    const size_t place = bigEndian ? at + i : at + width - 1 - i;
    value = value << 8 | static_cast<unsigned char>(bytes.at(place));
  }
  return value;
}

}  // namespace

std::string SignableImage::build() const {
  const Commands make{arch};
  const uint32_t sections = infoPlist.empty() ? 1 : 2;
  const uint32_t size =
      2 * (arch.is64 ? 72 : 56) + sections * (arch.is64 ? 80 : 68) + 24 + (minimum != 0 ? 16 : 0);
  const uint64_t content = (arch.is64 ? 32 : 28) + size + room;
  const uint64_t textSize = textPages * kPage;

  std::string file =
      make.numbers({arch.is64 ? 0xfeedfacf : 0xfeedface, arch.cputype, arch.cpusubtype, filetype,
                    minimum != 0 ? 4U : 3U, size, 0x200085});
  if (arch.is64) file += make.numbers({0});
  file += make.segment("__TEXT", 0, textSize, sections) + make.section("__text", content, 100);
  if (sections == 2) file += make.section("__info_plist", content + 100, infoPlist.size());
  file += make.segment("__LINKEDIT", textSize, linkEditSize, 0);
  file += make.numbers({0x1b, 24}) + "0123456789abcdef";
  if (minimum != 0) file += make.numbers({0x25, 16, minimum, minimum});
  file.resize(content + 100);
  file += infoPlist;
  for (size_t i = file.size(); i < textSize + linkEditSize; ++i) {
    file += static_cast<char>(i * 7 + i / 251);
  }
  return file;
}

std::string buildUniversal(const std::vector<SignableImage>& images) {
  std::vector<FatMember> members;
  for (const SignableImage& image : images) members.push_back({image.arch, image.build()});
  return buildFat(members, kPage);
}

uint64_t little64(const std::string& bytes, size_t at) {
  return numberAt(bytes, at, 8);
}

uint32_t little32(const std::string& bytes, size_t at) {
  return static_cast<uint32_t>(numberAt(bytes, at, 4));
}

uint32_t big32(const std::string& bytes, size_t at) {
  return static_cast<uint32_t>(numberAt(bytes, at, 4, true));
}

}  // namespace tovrek::test
