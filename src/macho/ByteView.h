// Bounded access to the bytes of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace tovrek::macho {

// A range of bytes that answers only for what lies inside it. Offsets and sizes are 64 bits wide
// and may hold anything a damaged file claims; no pointer past the end is ever formed.
template <class Byte>
class BasicByteView {
 public:
  BasicByteView() = default;
  BasicByteView(std::span<Byte> bytes) : bytes_(bytes) {}  // NOLINT(google-explicit-constructor)
  // A view for editing also serves for reading.
  operator BasicByteView<const Byte>() const  // NOLINT(google-explicit-constructor)
      requires(!std::is_const_v<Byte>) {
    return std::span<const Byte>(bytes_);
  }

  uint64_t size() const { return bytes_.size(); }
  std::span<Byte> bytes() const { return bytes_; }

  // Whether [offset, offset + size) lies inside.
  bool contains(uint64_t offset, uint64_t size) const {
    return size <= bytes_.size() && offset <= bytes_.size() - size;
  }

  // Copies a record out; false, with `out` untouched, when it does not lie inside.
  template <class T>
  [[nodiscard]] bool read(uint64_t offset, T* out) const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (!contains(offset, sizeof(T))) return false;
    std::memcpy(out, bytes_.data() + offset, sizeof(T));
    return true;
  }

  // Copies a record in; false, with nothing changed, when it would not lie inside.
  template <class T>
  [[nodiscard]] bool write(uint64_t offset, const T& record) const
      requires(!std::is_const_v<Byte>) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (!contains(offset, sizeof(T))) return false;
    std::memcpy(bytes_.data() + offset, &record, sizeof(T));
    return true;
  }

  // The bytes [offset, offset + size), or an empty view when they do not lie inside.
  BasicByteView sub(uint64_t offset, uint64_t size) const {
    if (!contains(offset, size)) return {};
    return BasicByteView(bytes_.subspan(offset, size));
  }

  // The text at `offset`, up to a NUL or the end of the view; empty when it starts outside.
  std::string_view cString(uint64_t offset) const {
    if (offset >= bytes_.size()) return {};
    const void* start = bytes_.data() + offset;
    const size_t room = bytes_.size() - offset;
    const auto* text = static_cast<const char*>(start);
    return {text, strnlen(text, room)};
  }

 private:
  std::span<Byte> bytes_;
};

using ByteView = BasicByteView<const std::byte>;
using EditableByteView = BasicByteView<std::byte>;

// The bytes of a text, which must outlive the view.
inline ByteView viewOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

}  // namespace tovrek::macho
