// One Mach-O image as far as signing is concerned with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "macho/ByteView.h"

namespace tovrek::signing {

struct MachOImage {
  struct Segment {
    std::string name;
    uint64_t commandOffset = 0;
    uint64_t vmaddr = 0, vmsize = 0, fileoff = 0, filesize = 0;
    uint64_t firstSectionOffset = 0;  // the lowest file offset of its sections; 0 for none
  };
  struct SignatureCommand {
    uint64_t commandOffset = 0;
    uint32_t dataoff = 0, datasize = 0;
  };
  struct Version {
    uint32_t platform = 0, minimum = 0, sdk = 0;  // versions as x << 16 | y << 8 | z
  };

  macho::ByteView bytes;  // of the whole image
  uint32_t cputype = 0, cpusubtype = 0, filetype = 0;
  uint32_t ncmds = 0;
  uint64_t commandsEnd = 0;  // offset behind the last load command
  std::vector<Segment> segments;
  std::optional<SignatureCommand> signature;
  std::optional<Version> version;
  std::string uuid;            // 16 bytes; empty for none
  uint64_t stringPoolEnd = 0;  // of the symbol table; 0 without one
  std::string_view infoPlist;  // section __TEXT,__info_plist; empty for none

  // None, with the reason, when the header or a load command is damaged; what those lead to is not
  // looked at.
  static std::optional<MachOImage> parse(macho::ByteView bytes, ErrorText* error = nullptr);

  const Segment* segment(std::string_view name) const;  // the last of that name; null without
  bool isMainExecutable() const;
  std::string archName() const;
};

// Where a signature goes, and the header that says so.
struct SignaturePlacement {
  std::string head;        // the image's first bytes as they are to be written
  uint64_t codeLimit = 0;  // where the signature starts; all before it is hashed
  uint64_t signatureSize = 0;
};

// Where the signature of the image lies or would be put. None, with the reason, for images that
// cannot be signed.
std::optional<uint64_t> codeLimitFor(const MachOImage& image, ErrorText* error);

// Places a signature area of `signatureSize` bytes: reuses the place of the old signature or adds
// a load command, and grows __LINKEDIT over it.
std::optional<SignaturePlacement> placeSignature(const MachOImage& image, uint64_t signatureSize,
                                                 ErrorText* error);

// The image without its signature, when it has one: the command gone, __LINKEDIT shortened. The
// placement's limit is the image's new size and its signature empty.
std::optional<SignaturePlacement> removeSignature(const MachOImage& image, ErrorText* error);

// The area of the image's signature; none when there is no command for it or it lies outside.
std::optional<std::string_view> signatureArea(const MachOImage& image, ErrorText* error = nullptr);

}  // namespace tovrek::signing
