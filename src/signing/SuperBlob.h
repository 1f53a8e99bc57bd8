// Blobs and the index that holds a signature's blobs together.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "host/bytes.h"
#include "signing/layout.h"

namespace tovrek::signing {

// `payload` with a header in front.
std::string makeBlob(uint32_t magic, std::string_view payload);
// The whole blob that starts at `offset`; none when it does not lie inside `bytes`.
std::optional<std::string_view> blobAt(std::string_view bytes, uint64_t offset);
// Magic and payload of a blob that blobAt() or makeBlob() gave.
uint32_t magicOf(std::string_view blob);
std::string_view payloadOf(std::string_view blob);

// An index of blobs, as embedded signatures and requirement sets have it. Views into the parsed
// bytes, which must outlive the object.
class SuperBlob {
 public:
  struct Entry {
    uint32_t type;
    std::string_view blob;
  };

  // Checks that the magic fits and that each listed blob lies inside.
  static std::optional<SuperBlob> parse(std::string_view bytes, uint32_t magic,
                                        ErrorText* error = nullptr);
  // The blob under `type`; none when absent.
  std::optional<std::string_view> find(uint32_t type) const;
  const std::vector<Entry>& entries() const { return entries_; }
  // Bytes of the whole index with its blobs.
  size_t length() const { return length_; }

 private:
  std::vector<Entry> entries_;
  size_t length_ = 0;
};

// The index over whole blobs, sorted by type and without gaps.
std::string makeSuperBlob(uint32_t magic, const std::map<uint32_t, std::string>& blobs);

}  // namespace tovrek::signing
