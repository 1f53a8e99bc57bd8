#include "tests/otool/PlainImage.h"

#include <regex>
#include <set>
#include <sstream>

#include "tests/support/MachOBuilder.h"

namespace tovrek::test {
namespace {

constexpr uint64_t kBase = 0x100000000;

std::string little(uint64_t value, uint32_t width) {
  return stored(kArm64, value, width);
}

bool isArm64e(uint16_t format) {
  return format == 1 || format == 7 || format >= 9;
}

}  // namespace

PlainImage::PlainImage(std::string image, const std::string& tables) : bytes(std::move(image)) {
  uint64_t at = 32;
  for (uint64_t left = number(16, 4); left > 0; --left) {
    const uint64_t cmd = number(at, 4);
    if (cmd == 0x19) {
      segments_.push_back({number(at + 24, 8), number(at + 32, 8), number(at + 40, 8)});
    }
    if (cmd == 0x80000022) dyldInfo_ = at;
    at += number(at + 4, 4);
  }
  std::istringstream lines(tables);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string segment, section, address, type, addend, library, symbol;
    if (!(words >> segment >> section >> address >> type) || type != "pointer") continue;
    uint32_t import = 0;
    if (words >> addend >> library >> symbol) {
      imports_.push_back(symbol);
      import = static_cast<uint32_t>(imports_.size());
    }
    pointers_[std::stoull(address, nullptr, 16)] = import;
  }
}

uint64_t PlainImage::number(uint64_t offset, uint32_t width) const {
  uint64_t value = 0;
  for (uint32_t i = width; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i - 1));
  }
  return value;
}

uint64_t PlainImage::offsetOf(uint64_t address) const {
  for (const Segment& segment : segments_) {
    if (address >= segment.address && address - segment.address < segment.size) {
      return address - segment.address + segment.offset;
    }
  }
  throw std::out_of_range("no segment holds the address");
}

uint64_t PlainImage::encoded(uint16_t format, uint64_t address, bool authenticated) const {
  const uint32_t import = pointers_.at(address);
  const uint64_t target = number(offsetOf(address), 8);
  const bool asOffset = format == 6 || format == 7 || format == 9 || format == 12;
  if (!isArm64e(format)) {
    if (import != 0) return uint64_t{1} << 63 | (import - 1);
    return asOffset ? target - kBase : target;
  }
  constexpr uint64_t kAuthenticated = uint64_t{1} << 63, kBind = uint64_t{1} << 62,
                     kDiversity = uint64_t{0x6ae1} << 32;
  const uint64_t authentication = authenticated ? kAuthenticated | kDiversity : 0;
  if (import != 0) return authentication | kBind | (import - 1);
  if (authenticated) return authentication | (target - kBase);
  return asOffset ? target - kBase : target;
}

std::string PlainImage::fixups(uint16_t pointerFormat, uint32_t importsFormat) const {
  std::string starts = little(segments_.size(), 4);
  const uint64_t listEnd = 4 + 4 * segments_.size();
  std::string records;
  for (const Segment& segment : segments_) {
    const auto first = pointers_.lower_bound(segment.address);
    const bool hasPointers =
        first != pointers_.end() && first->first - segment.address < segment.size;
    starts += little(hasPointers ? listEnd + records.size() : 0, 4);
    if (!hasPointers) continue;
    records += little(24, 4) + little(0x4000, 2) + little(pointerFormat, 2) +
               little(segment.address - kBase, 8) + little(0, 4) + little(1, 2) +
               little(first->first - segment.address, 2);
  }
  std::string table, names(1, '\0');
  for (const std::string& import : imports_) {
    const uint64_t name = names.size();
    names += import + '\0';
    if (importsFormat == 3) {
      table += little(1, 4) + little(name, 4) + little(0, 8);
    } else {
      table += little(1 | name << 9, 4) + (importsFormat == 2 ? little(0, 4) : "");
    }
  }
  const uint64_t importsOffset = 28 + starts.size() + records.size();
  return little(0, 4) + little(28, 4) + little(importsOffset, 4) +
         little(importsOffset + table.size(), 4) + little(imports_.size(), 4) +
         little(importsFormat, 4) + little(0, 4) + starts + records + table + names;
}

std::string PlainImage::chained(uint16_t pointerFormat, uint32_t importsFormat) const {
  std::string result = bytes;
  bool authenticated = false;
  for (auto pointer = pointers_.begin(); pointer != pointers_.end(); ++pointer) {
    const auto next = std::next(pointer);
    uint64_t raw = encoded(pointerFormat, pointer->first, authenticated);
    if (next != pointers_.end()) {
      const uint64_t distance = next->first - pointer->first;
      const bool inFours = !isArm64e(pointerFormat) || pointerFormat == 7 || pointerFormat == 10;
      if (distance < 0x1000) raw |= distance / (inFours ? 4 : 8) << 51;
    }
    patch(&result, offsetOf(pointer->first), little(raw, 8));
    authenticated = !authenticated;
  }
  const std::string data = fixups(pointerFormat, importsFormat);
  patch(&result, dyldInfo_, little(0x80000034, 4));
  patch(&result, dyldInfo_ + 8, little(result.size(), 4) + little(data.size(), 4));
  return result + data;
}

void PlainImage::makeMethodListsRelative(const std::string& listing) {
  const std::regex pattern(
      "(?:baseMethods|instanceMethods|classMethods) 0x([0-9a-f]+)[^\n]*\n"
      "\t*\t\t   entsize 24");
  std::set<uint64_t> lists;
  for (std::sregex_iterator match(listing.begin(), listing.end(), pattern), end; match != end;
       ++match) {
    lists.insert(std::stoull((*match)[1], nullptr, 16));
  }
  for (const uint64_t list : lists) {
    const uint64_t start = offsetOf(list);
    const uint64_t count = number(start + 4, 4);
    std::string entries, selectors;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t entry = list + 8 + 12 * i;
      const uint64_t slot = list + 8 + 12 * count + 8 * i;
      const uint64_t old = start + 8 + 24 * i;
      selectors += little(number(old, 8), 8);
      const uint64_t imp = number(old + 16, 8);
      entries += little(static_cast<uint32_t>(slot - entry), 4) +
                 little(static_cast<uint32_t>(number(old + 8, 8) - entry - 4), 4) +
                 little(static_cast<uint32_t>(imp == 0 ? 0 : imp - entry - 8), 4);
    }
    patch(&bytes, start, little(0x8000000c, 4));
    patch(&bytes, start + 8, entries + selectors);
  }
}

}  // namespace tovrek::test
