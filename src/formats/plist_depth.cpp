#include "formats/plist_depth.h"

#include <cstdint>
#include <vector>

namespace tovrek {
namespace {

constexpr int kDeepest = 200;

bool xmlDepthIsSane(std::string_view text) {
  int depth = 0;
  for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const std::string_view tag = text.substr(at + 1, 6);
    if (tag.starts_with("dict") || tag.starts_with("array")) {
      const size_t end = text.find('>', at);
      const bool closed = end != std::string_view::npos && text[end - 1] == '/';
      if (!closed && ++depth > kDeepest) return false;
    } else if ((tag.starts_with("/dict") || tag.starts_with("/array")) && depth > 0) {
      --depth;
    }
  }
  return true;
}

// The object table of a binary property list ("bplist00"): objects, then an offset for each,
// then a trailer of 32 bytes with the widths, the count, the top object and the table's place.
class BinaryObjects {
 public:
  explicit BinaryObjects(std::string_view bytes) : bytes_(bytes) {
    if (bytes.size() < 40) return;
    const size_t trailer = bytes.size() - 32;
    offsetWidth_ = byteAt(trailer + 6);
    referenceWidth_ = byteAt(trailer + 7);
    count_ = number(trailer + 8, 8);
    top_ = number(trailer + 16, 8);
    table_ = number(trailer + 24, 8);
    if (offsetWidth_ == 0 || offsetWidth_ > 8 || referenceWidth_ == 0 || referenceWidth_ > 8 ||
        count_ > bytes.size()) {
      count_ = 0;
    }
  }

  uint64_t count() const { return count_; }
  uint64_t top() const { return top_; }

  // The objects that array or dictionary `object` refers to; none for any other kind.
  std::vector<uint64_t> children(uint64_t object) const {
    std::vector<uint64_t> result;
    if (table_ > bytes_.size()) return result;
    uint64_t at = number(table_ + object * offsetWidth_, offsetWidth_);
    const unsigned marker = byteAt(at++);
    const unsigned kind = marker >> 4;
    if (kind != 0xA && kind != 0xC && kind != 0xD) return result;
    uint64_t length = marker & 0xF;
    if (length == 0xF) {
      const unsigned width = 1U << (byteAt(at++) & 0x3);
      length = number(at, width);
      at += width;
    }
    if (length > bytes_.size()) return result;
    const uint64_t references = kind == 0xD ? length * 2 : length;
    for (uint64_t i = 0; i < references; ++i) {
      const uint64_t child = number(at + i * referenceWidth_, referenceWidth_);
      if (child < count_) result.push_back(child);
    }
    return result;
  }

 private:
  unsigned byteAt(uint64_t at) const {
    return at < bytes_.size() ? static_cast<unsigned char>(bytes_[at]) : 0;
  }
  uint64_t number(uint64_t at, unsigned width) const {
    uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) value = value << 8 | byteAt(at + i);
    return value;
  }

  std::string_view bytes_;
  unsigned offsetWidth_ = 0, referenceWidth_ = 0;
  uint64_t count_ = 0, top_ = 0, table_ = 0;
};

// Objects may be shared, so paths can outnumber objects without bound; what counts is the
// longest one. Objects in work are marked: a cycle, or one object reached very often, is refused.
bool binaryDepthIsSane(std::string_view bytes) {
  const BinaryObjects objects(bytes);
  if (objects.top() >= objects.count()) return true;
  struct Level {
    std::vector<uint64_t> children;
    size_t next;
  };
  std::vector<Level> path;
  path.push_back({objects.children(objects.top()), 0});
  uint64_t visited = 0;
  const uint64_t limit = 8 * bytes.size() + 1024;
  while (!path.empty()) {
    Level& level = path.back();
    if (level.next == level.children.size()) {
      path.pop_back();
      continue;
    }
    if (++visited > limit) return false;
    const uint64_t child = level.children[level.next++];
    if (path.size() > static_cast<size_t>(kDeepest)) return false;
    path.push_back({objects.children(child), 0});
  }
  return true;
}

}  // namespace

bool plistDepthIsSane(std::string_view bytes) {
  return bytes.starts_with("bplist") ? binaryDepthIsSane(bytes) : xmlDepthIsSane(bytes);
}

}  // namespace tovrek
