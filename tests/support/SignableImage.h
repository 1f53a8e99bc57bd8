// Small Mach-O images to put signatures on, written byte by byte from the published format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/MachOBuilder.h"

namespace tovrek::test {

struct SignableImage {
  TestArch arch = kArm64;
  uint32_t filetype = 2;          // executable; 6 is a library
  uint32_t minimum = 0x000d0000;  // iOS version, x << 16 | y << 8; 0: no version command
  uint32_t room = 64;             // bytes between the load commands and the first section
  uint32_t textPages = 3;         // of 4096 bytes
  uint32_t linkEditSize = 200;
  std::string infoPlist{};  // in a section of __TEXT

  static SignableImage armv7() { return {.arch = kArmv7, .minimum = 0x00080000}; }
  static SignableImage library() { return {.filetype = 6}; }

  std::string build() const;
};

// A universal file of `images`, each at a multiple of 4096.
std::string buildUniversal(const std::vector<SignableImage>& images);

// Numbers of a built or signed image.
uint32_t little32(const std::string& bytes, size_t at);
uint64_t little64(const std::string& bytes, size_t at);
uint32_t big32(const std::string& bytes, size_t at);

}  // namespace tovrek::test
