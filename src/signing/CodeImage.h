// The bytes that a signature covers, without a copy of them all.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "signing/CodeDirectory.h"

namespace tovrek::signing {

// An edited head, then the mapped original from where the head ends, then zeros up to the limit.
// The mapping must outlive the object.
class CodeImage {
 public:
  CodeImage(std::string head, std::string_view original, uint64_t limit)
      : head_(std::move(head)), original_(original), limit_(limit) {}

  uint64_t limit() const { return limit_; }
  // [offset, offset + size) as up to three runs of bytes, in order, until `take` answers false.
  // Answers whether all were taken.
  bool forEachRun(uint64_t offset, uint64_t size,
                  const std::function<bool(std::string_view)>& take) const;
  // Takes bytes that belong at `offset`; false stops. Called by several threads at once.
  using Sink = std::function<bool(uint64_t offset, std::string_view bytes)>;
  // The hashes of all pages, one after the other, for each of `kinds`. Each page is read once, and
  // handed to `sink` while the processor still holds it. None when `sink` answers false.
  std::optional<std::vector<std::string>> pageHashes(uint8_t pageSizeLog2,
                                                     std::span<const HashKind> kinds,
                                                     const Sink& sink = {}) const;
  // Hands all bytes to `sink`.
  bool copyTo(const Sink& sink) const;

 private:
  bool sendTo(const Sink& sink, uint64_t offset, uint64_t size) const;
  std::string_view mapped(uint64_t offset, uint64_t size) const;

  std::string head_;
  std::string_view original_;
  uint64_t limit_;
};

}  // namespace tovrek::signing
