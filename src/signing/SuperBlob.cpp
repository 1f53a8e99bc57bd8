#include "signing/SuperBlob.h"

#include <fmt/format.h>

namespace tovrek::signing {
namespace {

constexpr size_t kIndexHeaderSize = 12;
constexpr size_t kIndexEntrySize = 8;

}  // namespace

std::string makeBlob(uint32_t magic, std::string_view payload) {
  std::string blob;
  blob.reserve(kBlobHeaderSize + payload.size());
  appendBig32(&blob, magic);
  appendBig32(&blob, static_cast<uint32_t>(kBlobHeaderSize + payload.size()));
  blob += payload;
  return blob;
}

std::optional<std::string_view> blobAt(std::string_view bytes, uint64_t offset) {
  if (!holds(bytes, offset, kBlobHeaderSize)) return std::nullopt;
  const uint32_t length = *readBig32(bytes, offset + 4);
  if (length < kBlobHeaderSize || !holds(bytes, offset, length)) return std::nullopt;
  return bytes.substr(offset, length);
}

uint32_t magicOf(std::string_view blob) {
  return readBig32(blob, 0).value_or(0);
}

std::string_view payloadOf(std::string_view blob) {
  return blob.substr(kBlobHeaderSize);
}

std::optional<SuperBlob> SuperBlob::parse(std::string_view bytes, uint32_t magic,
                                          ErrorText* error) {
  const auto whole = blobAt(bytes, 0);
  if (!whole || whole->size() < kIndexHeaderSize) {
    fail(error, "signature index extends past its area");
    return std::nullopt;
  }
  if (magicOf(*whole) != magic) {
    fail(error,
         fmt::format("signature index has magic {:#010x}, not {:#010x}", magicOf(*whole), magic));
    return std::nullopt;
  }
  const uint64_t count = *readBig32(*whole, 8);
  if (!holds(*whole, kIndexHeaderSize, count * kIndexEntrySize)) {
    fail(error, fmt::format("signature index lists {} blobs and has no room for them", count));
    return std::nullopt;
  }
  SuperBlob index;
  index.length_ = whole->size();
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t at = kIndexHeaderSize + i * kIndexEntrySize;
    const uint32_t type = *readBig32(*whole, at);
    const auto blob = blobAt(*whole, *readBig32(*whole, at + 4));
    if (!blob) {
      fail(error, fmt::format("signature blob {:#x} extends past the index", type));
      return std::nullopt;
    }
    index.entries_.push_back({type, *blob});
  }
  return index;
}

std::optional<std::string_view> SuperBlob::find(uint32_t type) const {
  for (const Entry& entry : entries_) {
    if (entry.type == type) return entry.blob;
  }
  return std::nullopt;
}

std::string makeSuperBlob(uint32_t magic, const std::map<uint32_t, std::string>& blobs) {
  std::string index;
  std::string bodies;
  appendBig32(&index, static_cast<uint32_t>(blobs.size()));
  const size_t bodiesAt = kIndexHeaderSize + blobs.size() * kIndexEntrySize;
  for (const auto& [type, blob] : blobs) {
    appendBig32(&index, type);
    appendBig32(&index, static_cast<uint32_t>(bodiesAt + bodies.size()));
    bodies += blob;
  }
  return makeBlob(magic, index + bodies);
}

}  // namespace tovrek::signing
