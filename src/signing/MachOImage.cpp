#include "signing/MachOImage.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/bytes.h"
#include "macho/ArchName.h"
#include "macho/Image.h"

namespace tovrek::signing {
namespace {

using macho::ByteView;
using macho::CommandView;

// Picks out of the image what signing is concerned with.
template <class P>
class Summary {
 public:
  Summary(const macho::Image<P>& image, MachOImage* out) : image_(image), out_(*out) {}

  bool fill(ErrorText* error) {
    if (!image_.hasHeader()) return fail(error, "Mach-O header is cut short");
    const auto& header = image_.header;
    out_.cputype = header.cputype;
    out_.cpusubtype = header.cpusubtype;
    out_.filetype = header.filetype;
    out_.ncmds = header.ncmds;
    if (image_.commandsEnd() > image_.bytes.size()) {
      return fail(error, fmt::format("load commands of {} bytes extend past the end of the file",
                                     uint32_t{header.sizeofcmds}));
    }
    return takeCommands(error);
  }

 private:
  bool takeCommands(ErrorText* error) {
    out_.commandsEnd = sizeof(image_.header);
    for (const CommandView& command : image_.commands) {
      if (command.bytes.size() == 0) break;  // the damaged one
      if (!takeCommand(command)) return refuse(command, "is cut short", error);
      out_.commandsEnd = command.end();
    }
    return !image_.damage || refuse(image_.damage->command, "is damaged", error);
  }

  bool refuse(const CommandView& command, std::string_view what, ErrorText* error) const {
    return fail(error, fmt::format("load command {}/{} {}", command.index + 1, out_.ncmds, what));
  }

  // False for one that is too short.
  bool takeCommand(const CommandView& command) {
    switch (command.cmd) {
      case P::kSegmentCommand:
        return takeSegment(command);
      case macho::LC_CODE_SIGNATURE: {
        macho::macho_linkedit_data_command<P> data;
        if (!command.bytes.read(0, &data)) return false;
        out_.signature = {command.offset, data.dataoff, data.datasize};
        return true;
      }
      case macho::LC_SYMTAB: {
        macho::macho_symtab_command<P> table;
        if (!command.bytes.read(0, &table)) return false;
        out_.stringPoolEnd = uint64_t{uint32_t{table.stroff}} + uint32_t{table.strsize};
        return true;
      }
      case macho::LC_UUID: {
        macho::macho_uuid_command<P> uuid;
        if (!command.bytes.read(0, &uuid)) return false;
        out_.uuid = asText(uuid.uuid);
        return true;
      }
      default:
        return takeVersion(command);
    }
  }

  bool takeVersion(const CommandView& command) {
    switch (command.cmd) {
      case macho::LC_BUILD_VERSION: {
        macho::macho_build_version_command<P> version;
        if (!command.bytes.read(0, &version)) return false;
        out_.version = {version.platform, version.minos, version.sdk};
        return true;
      }
      case macho::LC_VERSION_MIN_MACOSX:
        return takeMinimum(command, macho::kPlatformMacos);
      case macho::LC_VERSION_MIN_IPHONEOS:
        return takeMinimum(command, macho::kPlatformIos);
      case macho::LC_VERSION_MIN_TVOS:
        return takeMinimum(command, macho::kPlatformTvos);
      case macho::LC_VERSION_MIN_WATCHOS:
        return takeMinimum(command, macho::kPlatformWatchos);
      default:
        return true;
    }
  }

  bool takeMinimum(const CommandView& command, uint32_t platform) {
    macho::macho_version_min_command<P> version;
    if (!command.bytes.read(0, &version)) return false;
    out_.version = {platform, version.version, version.sdk};
    return true;
  }

  // The image has the segments in the order of their commands, but not those too short for one.
  bool takeSegment(const CommandView& command) {
    const size_t next = out_.segments.size();
    if (next == image_.segments.size()) return false;
    const macho::Segment<P>& segment = image_.segments[next];
    const auto& record = segment.record;
    if (segment.command.index != command.index || segment.sectionCount < record.nsects) {
      return false;
    }
    out_.segments.push_back({std::string(record.segname.view()), command.offset, record.vmaddr,
                             record.vmsize, record.fileoff, record.filesize, 0});
    for (size_t i = 0; i < segment.sectionCount; ++i) {
      noteSection(image_.sections[segment.firstSection + i], &out_.segments.back());
    }
    return true;
  }

  void noteSection(const macho::macho_section<P>& section, MachOImage::Segment* segment) {
    const uint32_t offset = section.offset;
    if (offset != 0 && (segment->firstSectionOffset == 0 || offset < segment->firstSectionOffset)) {
      segment->firstSectionOffset = offset;
    }
    if (segment->name == macho::kTextSegment && section.sectname.view() == "__info_plist") {
      out_.infoPlist = asText(image_.bytes.sub(offset, section.size).bytes());
    }
  }

  const macho::Image<P>& image_;
  MachOImage& out_;
};

}  // namespace

std::optional<MachOImage> MachOImage::parse(ByteView bytes, ErrorText* error) {
  MachOImage summary;
  summary.bytes = bytes;
  bool read = false;
  const bool isImage = macho::visitImage(bytes, [&]<class P>(const macho::Image<P>& image) {
    read = Summary<P>(image, &summary).fill(error);
  });
  if (!isImage) fail(error, "not a Mach-O image");
  if (!read) return std::nullopt;
  return summary;
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
