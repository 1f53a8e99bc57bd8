// Slices of Mach-O files: what each loads, how much room is left, who signed it.
#include <fmt/format.h>

#include <algorithm>

#include "inspect/command_names.h"
#include "inspect/readers.h"
#include "macho/ArchName.h"
#include "macho/FatFile.h"
#include "macho/Image.h"
#include "signing/CmsSignature.h"
#include "signing/CodeSignature.h"

namespace tovrek::inspect {
namespace {

constexpr std::string_view kManagementLibrary = "OrvaneDylib.bundle/OrvaneDylib.dylib";
// Java class files share the magic number of universal files, and have no such small number next.
constexpr uint32_t kMostSlices = 40;

// By LC_BUILD_VERSION's numbers.
const char* platformName(uint32_t platform) {
  constexpr const char* kUnknown = "unknown platform";
  constexpr const char* kNames[] = {
      kUnknown, "macOS",        "iOS",           "tvOS",           "watchOS",
      kUnknown, "Mac Catalyst", "iOS simulator", "tvOS simulator", "watchOS simulator"};
  return platform < std::size(kNames) ? kNames[platform] : kUnknown;
}

// Fills in what the load commands say.
template <class P>
class CommandReader {
 public:
  CommandReader(const macho::Image<P>& image, Slice* slice) : image_(image), slice_(*slice) {}

  void read() {
    slice_.architecture = macho::archName(image_.header.cputype, image_.header.cpusubtype);
    slice_.fileType = image_.header.filetype;
    slice_.problem = image_.problem;
    for (const macho::CommandView& command : image_.commands) {
      slice_.commands.push_back(inWords(command));
    }
    for (const macho::CommandView& command : image_.libraries) {
      slice_.libraries.emplace_back(macho::dylibName<P>(command));
    }
    slice_.loadsManagement = std::ranges::any_of(slice_.libraries, [](const std::string& name) {
      return name.find(kManagementLibrary) != std::string::npos;
    });
    const auto& encryption = image_.pointers.encryption;
    if (encryption) slice_.cryptid = encryption->record.cryptid;
    readRoom();
  }

 private:
  std::string inWords(const macho::CommandView& command) const {
    std::string words = commandName(command.cmd);
    macho::macho_segment_command<P> segment;
    const bool hasName = macho::loadsDylib(command.cmd) || command.cmd == macho::LC_ID_DYLIB ||
                         command.cmd == macho::LC_RPATH || command.cmd == macho::LC_LOAD_DYLINKER;
    if (command.cmd == P::kSegmentCommand && command.bytes.read(0, &segment)) {
      words += " " + std::string(segment.segname.view());
    } else if (hasName) {
      // The place of the name comes first in all of these.
      typename P::Word place;
      if (command.bytes.read(8, &place)) {
        words += " " + std::string(command.bytes.cString(uint32_t{place}));
      }
    }
    return words;
  }

  // Up to the first bytes that belong to a segment or section.
  void readRoom() {
    uint64_t first = image_.bytes.size();
    const auto lower = [&](uint64_t offset) {
      if (offset != 0) first = std::min(first, offset);
    };
    for (const auto& segment : image_.segments) {
      if (segment.record.filesize != 0) lower(segment.record.fileoff);
    }
    for (const auto& section : image_.sections) {
      if (!macho::isZeroFilled(section.flags) && section.size != 0) lower(section.offset);
    }
    const uint64_t end = image_.commandsEnd();
    slice_.headerRoom = first > end ? first - end : 0;
  }

  const macho::Image<P>& image_;
  Slice& slice_;
};

SliceSignature summaryOf(const signing::CodeSignature& signature) {
  SliceSignature summary;
  const signing::CodeDirectoryInfo& info = signature.primary().info();
  summary.identifier = info.identifier;
  summary.team = info.teamId;
  summary.flags = info.flags;
  summary.version = info.version;
  summary.isAdhoc = signature.isAdhoc();
  summary.cdHash = hexLower(signature.best().cdHash());
  for (const auto& directory : signature.directories()) {
    summary.hashes.emplace_back(directory.kind().name);
  }
  if (const auto text = signature.entitlementsText()) {
    const auto plist = parsePlist(*text);
    if (plist && plist->dictionary() != nullptr) summary.entitlements = *plist->dictionary();
  }
  summary.hasDerEntitlements = signature.component(signing::kDerEntitlementsSlot).has_value();
  if (const auto cms = signing::CmsSignature::parse(signature.cms())) {
    summary.chain = cms->chain().completed().certificates();
    summary.signedAt = cms->signingTime();
  }
  return summary;
}

void readSigned(macho::ByteView bytes, Slice* slice) {
  ErrorText reason;
  const auto image = signing::MachOImage::parse(bytes, &reason);
  if (!image) {
    slice->signatureProblem = reason.text();
    if (slice->problem.empty()) slice->problem = reason.text();
    return;
  }
  if (image->version) {
    slice->platform = platformName(image->version->platform);
    slice->minimumSystem = versionText(image->version->minimum);
    slice->sdk = versionText(image->version->sdk);
  }
  const auto signature = signing::CodeSignature::embeddedIn(*image, &reason);
  if (signature) {
    slice->signature = summaryOf(*signature);
  } else {
    slice->signatureProblem = reason.text() == signing::kNotSigned ? "not signed" : reason.text();
  }
}

}  // namespace

bool looksLikeCode(std::string_view bytes) {
  const macho::ByteView view = macho::viewOf(bytes);
  const auto table = macho::FatTable::find(view);
  if (table && !table->isWide()) return table->count() <= kMostSlices;
  return macho::hasThinMagic(view);
}

std::vector<Slice> readSlices(std::string_view bytes, std::string* problem) {
  std::vector<Slice> slices;
  const macho::ByteView view = macho::viewOf(bytes);
  macho::FatFile file;
  ErrorText reason;
  if (!looksLikeCode(bytes)) {
    *problem = "it is no Mach-O file";
  } else if (!macho::FatFile::read(view, &file, &reason)) {
    *problem = reason.text();
  }
  for (const macho::FatSlice& part : file.slices) {
    const macho::ByteView image = view.sub(part.offset, part.size);
    Slice slice;
    const bool known = macho::visitImage(image, [&]<class P>(const macho::Image<P>& read) {
      CommandReader<P>(read, &slice).read();
    });
    if (known) {
      readSigned(image, &slice);
    } else {
      slice.architecture = macho::archName(part.cputype, part.cpusubtype);
      slice.problem = "the slice is no Mach-O image";
    }
    slices.push_back(std::move(slice));
  }
  return slices;
}

std::map<std::string, std::string> codeDigests(std::string_view bytes) {
  std::map<std::string, std::string> digests;
  macho::FatFile file;
  const macho::ByteView view = macho::viewOf(bytes);
  if (!looksLikeCode(bytes) || !macho::FatFile::read(view, &file, nullptr)) return digests;
  for (const macho::FatSlice& part : file.slices) {
    macho::visitImage(view.sub(part.offset, part.size), [&]<class P>(const macho::Image<P>& image) {
      Digest digest(DigestAlgorithm::kSha256);
      for (const auto& section : image.sections) {
        digest.update(section.sectname.view());
        digest.update(image.contents(section).bytes());
      }
      digests[macho::archName(image.header.cputype, image.header.cpusubtype)] = digest.finish();
    });
  }
  return digests;
}

std::string versionText(uint32_t packed) {
  const uint32_t last = packed & 0xff;
  const std::string text = fmt::format("{}.{}", packed >> 16, packed >> 8 & 0xff);
  return last == 0 ? text : fmt::format("{}.{}", text, last);
}

bool isHigherVersion(std::string_view a, std::string_view b) {
  const auto next = [](std::string_view& rest) {
    uint64_t value = 0;
    while (!rest.empty() && rest.front() != '.') {
      const char c = rest.front();
      if (c >= '0' && c <= '9' && value < 1000000000) value = value * 10 + uint64_t(c - '0');
      rest.remove_prefix(1);
    }
    if (!rest.empty()) rest.remove_prefix(1);
    return value;
  };
  while (!a.empty() || !b.empty()) {
    const uint64_t left = next(a), right = next(b);
    if (left != right) return left > right;
  }
  return false;
}

}  // namespace tovrek::inspect
