#include "tests/support/SignableImage.h"

namespace tovrek::test {
namespace {

constexpr size_t kPage = 4096;

class Bytes {
 public:
  Bytes& number(uint64_t value, size_t width = 4) {
    for (size_t i = 0; i < width; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
    return *this;
  }
  Bytes& big(uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) text.push_back(static_cast<char>(value >> shift));
    return *this;
  }
  Bytes& name(const std::string& value) {
    text += value;
    text.append(16 - value.size(), '\0');
    return *this;
  }
  std::string text;
};

void addSegment(Bytes* out, bool is64, const char* name, uint64_t address, uint64_t offset,
                uint64_t size, uint32_t sections) {
  const size_t width = is64 ? 8 : 4;
  const uint32_t length = (is64 ? 72U : 56U) + sections * (is64 ? 80U : 68U);
  out->number(is64 ? 0x19 : 1).number(length).name(name);
  out->number(address, width).number((size + kPage - 1) / kPage * kPage, width);
  out->number(offset, width).number(size, width).number(5).number(5).number(sections).number(0);
}

void addSection(Bytes* out, bool is64, const char* name, uint64_t offset, uint64_t size) {
  const size_t width = is64 ? 8 : 4;
  out->name(name).name("__TEXT").number(0x4000 + offset, width).number(size, width);
  out->number(offset);
  for (int i = 0; i < (is64 ? 7 : 6); ++i) out->number(0);
}

}  // namespace

std::string SignableImage::build() const {
  const uint32_t sections = infoPlist.empty() ? 1 : 2;
  const uint32_t header = is64 ? 32 : 28;
  const uint32_t segment = is64 ? 72 : 56;
  const uint32_t commands =
      2 * segment + sections * (is64 ? 80 : 68) + 24 + (minimum != 0 ? 16 : 0);
  const uint32_t content = header + commands + room;
  const uint64_t textSize = textPages * kPage;

  Bytes out;
  out.number(is64 ? 0xfeedfacf : 0xfeedface).number(cputype).number(cpusubtype).number(filetype);
  out.number(minimum != 0 ? 4 : 3).number(commands).number(0x200085);
  if (is64) out.number(0);
  addSegment(&out, is64, "__TEXT", 0x4000, 0, textSize, sections);
  addSection(&out, is64, "__text", content, 100);
  if (sections == 2) addSection(&out, is64, "__info_plist", content + 100, infoPlist.size());
  addSegment(&out, is64, "__LINKEDIT", 0x4000 + textSize, textSize, linkEditSize, 0);
  out.number(0x1b).number(24).name("0123456789abcdef");
  if (minimum != 0) out.number(0x25).number(16).number(minimum).number(minimum);
  out.text.resize(content + 100, '\0');
  out.text += infoPlist;
  for (size_t i = out.text.size(); i < textSize + linkEditSize; ++i) {
    out.text.push_back(static_cast<char>(i * 7 + i / 251));
  }
  return out.text;
}

std::string buildUniversal(const std::vector<SignableImage>& images) {
  Bytes out;
  out.big(0xcafebabe).big(static_cast<uint32_t>(images.size()));
  size_t offset = kPage;
  for (const SignableImage& image : images) {
    const size_t size = image.build().size();
    out.big(image.cputype).big(image.cpusubtype).big(static_cast<uint32_t>(offset));
    out.big(static_cast<uint32_t>(size)).big(12);
    offset = (offset + size + kPage - 1) / kPage * kPage;
  }
  for (const SignableImage& image : images) {
    out.text.resize((out.text.size() + kPage - 1) / kPage * kPage);
    out.text += image.build();
  }
  return out.text;
}

uint64_t little64(const std::string& bytes, size_t at) {
  uint64_t value = 0;
  for (size_t i = 8; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

uint32_t little32(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

uint32_t big32(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

}  // namespace tovrek::test
