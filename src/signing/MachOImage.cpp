#include "signing/MachOImage.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/bytes.h"
#include "macho/ArchName.h"
#include "macho/layout.h"

namespace tovrek::signing {
namespace {

using macho::ByteView;

// Reads one image; P is the pointer model that its magic number stands for.
template <class P>
class Reader {
 public:
  Reader(ByteView bytes, MachOImage* image) : bytes_(bytes), image_(*image) {}

  bool read(ErrorText* error) {
    macho::macho_header<P> header;
    if (!bytes_.read(0, &header)) return fail(error, "Mach-O header is cut short");
    image_.is64 = P::kPointerSize == 8;
    image_.isLittleEndian = std::is_same_v<typename P::Order, macho::LittleEndian>;
    image_.cputype = header.cputype;
    image_.cpusubtype = header.cpusubtype;
    image_.filetype = header.filetype;
    image_.ncmds = header.ncmds;
    image_.headerSize = sizeof(header);
    const uint32_t sizeofcmds = header.sizeofcmds;
    image_.commandsEnd = sizeof(header) + uint64_t{sizeofcmds};
    if (!bytes_.contains(sizeof(header), sizeofcmds)) {
      return fail(error, fmt::format("load commands of {} bytes extend past the end of the file",
                                     sizeofcmds));
    }
    return readCommands(error);
  }

 private:
  bool readCommands(ErrorText* error) {
    uint64_t at = image_.headerSize;
    for (uint32_t i = 0; i < image_.ncmds; ++i) {
      macho::macho_load_command<P> command;
      const ByteView rest = bytes_.sub(at, image_.commandsEnd - at);
      const bool readable = rest.read(0, &command);
      const uint32_t size = readable ? uint32_t{command.cmdsize} : 0;
      if (size < sizeof(command) || !rest.contains(0, size)) {
        return fail(error, fmt::format("load command {}/{} is damaged", i + 1, image_.ncmds));
      }
      if (!readCommand(command.cmd, rest.sub(0, size), at)) {
        return fail(error, fmt::format("load command {}/{} is cut short", i + 1, image_.ncmds));
      }
      at += size;
    }
    image_.commandsEnd = at;
    return true;
  }

  // `body` is the command alone, so that no command reaches into its neighbour.
  bool readCommand(uint32_t cmd, ByteView body, uint64_t at) {
    switch (cmd) {
      case P::kSegmentCommand:
        return readSegment(body, at);
      case macho::LC_CODE_SIGNATURE: {
        macho::macho_linkedit_data_command<P> command;
        if (!body.read(0, &command)) return false;
        image_.signature = {at, command.dataoff, command.datasize};
        return true;
      }
      case macho::LC_SYMTAB: {
        macho::macho_symtab_command<P> command;
        if (!body.read(0, &command)) return false;
        image_.stringPoolEnd = uint64_t{uint32_t{command.stroff}} + uint32_t{command.strsize};
        return true;
      }
      case macho::LC_UUID: {
        macho::macho_uuid_command<P> command;
        if (!body.read(0, &command)) return false;
        image_.uuid = asText(command.uuid);
        return true;
      }
      case macho::LC_BUILD_VERSION: {
        macho::macho_build_version_command<P> command;
        if (!body.read(0, &command)) return false;
        image_.version = {command.platform, command.minos, command.sdk};
        return true;
      }
      case macho::LC_VERSION_MIN_MACOSX:
        return readVersion(body, kPlatformMacos);
      case macho::LC_VERSION_MIN_IPHONEOS:
        return readVersion(body, kPlatformIos);
      case macho::LC_VERSION_MIN_TVOS:
        return readVersion(body, kPlatformTvos);
      case macho::LC_VERSION_MIN_WATCHOS:
        return readVersion(body, kPlatformWatchos);
      default:
        return true;
    }
  }

  bool readVersion(ByteView body, uint32_t platform) {
    macho::macho_version_min_command<P> command;
    if (!body.read(0, &command)) return false;
    image_.version = {platform, command.version, command.sdk};
    return true;
  }

  bool readSegment(ByteView body, uint64_t at) {
    macho::macho_segment_command<P> command;
    if (!body.read(0, &command)) return false;
    MachOImage::Segment segment{std::string(command.segname.view()),
                                at,
                                command.vmaddr,
                                command.vmsize,
                                command.fileoff,
                                command.filesize,
                                0};
    const uint32_t nsects = command.nsects;
    for (uint32_t i = 0; i < nsects; ++i) {
      macho::macho_section<P> section;
      if (!body.read(sizeof(command) + uint64_t{i} * sizeof(section), &section)) return false;
      noteSection(section, &segment);
    }
    image_.segments.push_back(std::move(segment));
    return true;
  }

  void noteSection(const macho::macho_section<P>& section, MachOImage::Segment* segment) {
    const uint32_t offset = section.offset;
    const uint64_t size = section.size;
    if (offset != 0 && (segment->firstSectionOffset == 0 || offset < segment->firstSectionOffset)) {
      segment->firstSectionOffset = offset;
    }
    if (segment->name == macho::kTextSegment && section.sectname.view() == "__info_plist") {
      image_.infoPlist = asText(bytes_.sub(offset, size).bytes());
    }
  }

  ByteView bytes_;
  MachOImage& image_;
};

template <class P>
bool hasMagic(ByteView bytes) {
  typename P::Word magic;
  return bytes.read(0, &magic) && magic == P::kMagic;
}

}  // namespace

std::optional<MachOImage> MachOImage::parse(ByteView bytes, ErrorText* error) {
  MachOImage image;
  image.bytes = bytes;
  bool read = false;
  if (hasMagic<macho::Pointer64<macho::LittleEndian>>(bytes)) {
    read = Reader<macho::Pointer64<macho::LittleEndian>>(bytes, &image).read(error);
  } else if (hasMagic<macho::Pointer32<macho::LittleEndian>>(bytes)) {
    read = Reader<macho::Pointer32<macho::LittleEndian>>(bytes, &image).read(error);
  } else if (hasMagic<macho::Pointer64<macho::BigEndian>>(bytes)) {
    read = Reader<macho::Pointer64<macho::BigEndian>>(bytes, &image).read(error);
  } else if (hasMagic<macho::Pointer32<macho::BigEndian>>(bytes)) {
    read = Reader<macho::Pointer32<macho::BigEndian>>(bytes, &image).read(error);
  } else {
    fail(error, "not a Mach-O image");
  }
  if (!read) return std::nullopt;
  return image;
}

const MachOImage::Segment* MachOImage::segment(std::string_view name) const {
  const auto at = std::find_if(segments.rbegin(), segments.rend(),
                               [&](const Segment& candidate) { return candidate.name == name; });
  return at == segments.rend() ? nullptr : &*at;
}

bool MachOImage::isMainExecutable() const {
  return filetype == macho::MH_EXECUTE;
}

std::string MachOImage::archName() const {
  return macho::archName(cputype, cpusubtype);
}

std::optional<std::string_view> signatureArea(const MachOImage& image, ErrorText* error) {
  if (!image.signature) {
    fail(error, "code object is not signed at all");
    return std::nullopt;
  }
  const auto& command = *image.signature;
  if (!image.bytes.contains(command.dataoff, command.datasize)) {
    fail(error, "the signature extends past the end of the file");
    return std::nullopt;
  }
  return asText(image.bytes.sub(command.dataoff, command.datasize).bytes());
}

}  // namespace tovrek::signing
