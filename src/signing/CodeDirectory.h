// The code directory: the hashes of the code's pages and of all that belongs to the signature.
// Its own hash is the identity of the signed code.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/Digest.h"
#include "signing/SuperBlob.h"

namespace tovrek::signing {

// One kind of hash that code directories use.
struct HashKind {
  uint8_t type;  // as in the header's hashType
  uint8_t size;  // bytes kept of the digest
  DigestAlgorithm algorithm;
  const char* name;
  const char* oid;  // of the digest in the signature's attributes
};
inline constexpr HashKind kSha1{1, 20, DigestAlgorithm::kSha1, "sha1", "1.3.14.3.2.26"};
inline constexpr HashKind kSha256{2, 32, DigestAlgorithm::kSha256, "sha256",
                                  "2.16.840.1.101.3.4.2.1"};
// The kind of that type; none when unknown.
std::optional<HashKind> hashKind(uint8_t type);
// The digest of `bytes`, cut to the kind's size.
std::string hashOf(const HashKind& kind, std::string_view bytes);

// Bytes that identify code: hashes of code directories are cut to this size.
inline constexpr size_t kCdHashSize = 20;

// What a code directory says about the code, apart from the hash kind and the hashes.
struct CodeDirectoryInfo {
  uint32_t version = 0;
  uint32_t flags = 0;
  std::string identifier;
  std::string teamId;  // empty: none
  uint8_t platform = 0;
  uint8_t pageSizeLog2 = 12;  // 0: the code is one page
  uint64_t codeLimit = 0;     // bytes of code that the pages cover
  uint64_t execSegBase = 0;
  uint64_t execSegLimit = 0;
  uint64_t execSegFlags = 0;
  uint32_t runtime = 0;

  // Number of pages that cover the code.
  uint64_t pageCount() const;
};

// A parsed code directory; views into the blob, which must outlive it.
class CodeDirectory {
 public:
  // Checks the version, the strings, the hash areas and the page count against each other.
  static std::optional<CodeDirectory> parse(std::string_view blob, ErrorText* error = nullptr);

  const CodeDirectoryInfo& info() const { return info_; }
  std::string_view blob() const { return blob_; }
  const HashKind& kind() const { return kind_; }
  uint32_t specialSlotCount() const { return specialSlots_; }
  uint32_t codeSlotCount() const { return codeSlots_; }
  // The stored hash; empty when the slot is beyond the list. All zeros mean "nothing there".
  std::string_view specialHash(uint32_t slot) const;
  std::string_view codeHash(uint32_t page) const;
  bool sealsSlot(uint32_t slot) const;

  // The directory's own hash, whole, and cut to kCdHashSize.
  std::string fullHash() const { return digestOf(kind_.algorithm, blob_); }
  std::string cdHash() const { return fullHash().substr(0, kCdHashSize); }

 private:
  CodeDirectory(std::string_view blob, const HashKind& kind) : blob_(blob), kind_(kind) {}
  bool readHeader(ErrorText* error);
  std::optional<std::string> stringAt(uint32_t offset) const;

  std::string_view blob_;
  HashKind kind_;
  CodeDirectoryInfo info_;
  uint32_t specialSlots_ = 0;
  uint32_t codeSlots_ = 0;
  uint32_t hashOffset_ = 0;
};

// Bytes of the header that makeCodeDirectory() writes.
size_t writtenHeaderSize(const CodeDirectoryInfo& info);

// Writes a code directory in the form of version 0x20400 (with the executable segment, which
// current systems demand), or 0x20500 where `info` states a runtime version. `specialHashes` by
// slot; absent slots are zeros. `codeHashes` holds info.pageCount() hashes one after the other.
std::string makeCodeDirectory(const CodeDirectoryInfo& info, const HashKind& kind,
                              const std::map<uint32_t, std::string>& specialHashes,
                              std::string_view codeHashes);

// The directories of a signature, the primary one first.
std::optional<std::vector<CodeDirectory>> codeDirectoriesOf(const SuperBlob& signature,
                                                            ErrorText* error = nullptr);
// The directory that systems go by: the one with the strongest hash.
const CodeDirectory& bestOf(const std::vector<CodeDirectory>& directories);

}  // namespace tovrek::signing
