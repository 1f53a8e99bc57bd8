// Making room for a signature in a Mach-O image: the load command that points to it, and the
// __LINKEDIT segment that holds it.
#include <fmt/format.h>

#include <algorithm>

#include "host/bytes.h"
#include "macho/pointer_models.h"
#include "signing/MachOImage.h"

namespace tovrek::signing {
namespace {

constexpr uint64_t kSignatureAlignment = 16;
constexpr uint64_t kLargestPage = 0x4000;
// Bytes that may follow an old signature; linkers round the file's size up.
constexpr uint64_t kTailSlack = 7;
constexpr uint32_t kKextBundle = 0xb;
constexpr uint64_t kFarthestOffset = 0xffffffff;

bool isSignable(uint32_t filetype) {
  constexpr uint32_t kTypes[] = {macho::MH_EXECUTE, macho::MH_DYLIB, macho::MH_BUNDLE,
                                 macho::MH_DYLINKER, kKextBundle};
  return std::find(std::begin(kTypes), std::end(kTypes), filetype) != std::end(kTypes);
}

// The signature is the end of __LINKEDIT, which therefore has to be the end of the image.
bool checkSegments(const MachOImage& image, ErrorText* error) {
  const MachOImage::Segment* linkEdit = image.segment(macho::kLinkEditSegment);
  if (linkEdit == nullptr) return fail(error, "the image has no __LINKEDIT segment");
  for (const MachOImage::Segment& segment : image.segments) {
    if (!image.bytes.contains(segment.fileoff, segment.filesize)) {
      return fail(error, fmt::format("segment {} extends past the end of the file", segment.name));
    }
    if (segment.fileoff > linkEdit->fileoff || segment.vmaddr > linkEdit->vmaddr) {
      return fail(error, "__LINKEDIT is not the last segment");
    }
  }
  return true;
}

std::optional<uint64_t> reject(ErrorText* error, std::string text) {
  fail(error, std::move(text));
  return std::nullopt;
}

// How far load commands may reach.
uint64_t commandRoomEnd(const MachOImage& image) {
  const auto holder =
      std::find_if(image.segments.begin(), image.segments.end(), [](const auto& segment) {
        return segment.fileoff == 0 && segment.filesize != 0 && segment.firstSectionOffset != 0;
      });
  if (holder != image.segments.end()) return holder->firstSectionOffset;
  // Without sections nothing tells where the content starts, but the link information is not to
  // be written over.
  const uint64_t linkEdit = image.segment(macho::kLinkEditSegment)->fileoff;
  return linkEdit == 0 ? image.commandsEnd : linkEdit;
}

// Edits the copied first bytes of the image.
template <class P>
class HeadEditor {
 public:
  explicit HeadEditor(std::string* head)
      : bytes_(std::as_writable_bytes(std::span(head->data(), head->size()))) {}

  bool setSignature(uint64_t at, uint64_t dataoff, uint64_t datasize) {
    const macho::macho_linkedit_data_command<P> command{
        macho::LC_CODE_SIGNATURE, static_cast<uint32_t>(sizeof(command)),
        static_cast<uint32_t>(dataoff), static_cast<uint32_t>(datasize)};
    return bytes_.write(at, command);
  }

  // Commands end at `end`.
  bool countCommands(uint32_t ncmds, uint64_t end) {
    macho::macho_header<P> header;
    if (!bytes_.read(0, &header)) return false;
    header.ncmds = ncmds;
    header.sizeofcmds = static_cast<uint32_t>(end - sizeof(header));
    return bytes_.write(0, header);
  }

  bool resizeSegment(uint64_t at, uint64_t end) {
    macho::macho_segment_command<P> command;
    if (!bytes_.read(at, &command)) return false;
    const uint64_t size = end - command.fileoff;
    command.filesize = static_cast<typename P::Integer>(size);
    command.vmsize = static_cast<typename P::Integer>(alignUp(size, kLargestPage));
    return bytes_.write(at, command);
  }

 private:
  macho::EditableByteView bytes_;
};

template <class P>
bool editHead(const MachOImage& image, SignaturePlacement* placement) {
  HeadEditor<P> editor(&placement->head);
  const uint64_t commandAt = image.signature ? image.signature->commandOffset : image.commandsEnd;
  const uint64_t end = placement->codeLimit + placement->signatureSize;
  return editor.setSignature(commandAt, placement->codeLimit, placement->signatureSize) &&
         (image.signature || editor.countCommands(image.ncmds + 1, placement->head.size())) &&
         editor.resizeSegment(image.segment(macho::kLinkEditSegment)->commandOffset, end);
}

// Cuts the signature's command out of the copied head; what follows moves down.
template <class P>
bool cutCommand(const MachOImage& image, SignaturePlacement* placement) {
  const uint64_t at = image.signature->commandOffset;
  macho::macho_load_command<P> command;
  if (!image.bytes.read(at, &command)) return false;
  const uint32_t size = command.cmdsize;
  HeadEditor<P> editor(&placement->head);
  // While the segment's command is still where the image has it.
  if (!editor.resizeSegment(image.segment(macho::kLinkEditSegment)->commandOffset,
                            placement->codeLimit)) {
    return false;
  }
  placement->head.erase(at, size).append(size, '\0');
  return HeadEditor<P>(&placement->head).countCommands(image.ncmds - 1, image.commandsEnd - size);
}

// The placement, unless its load commands could not be edited.
std::optional<SignaturePlacement> ifSound(bool isSound, const SignaturePlacement& placement,
                                          ErrorText* error) {
  if (isSound) return placement;
  fail(error, "load commands are damaged");
  return std::nullopt;
}

}  // namespace

std::optional<uint64_t> codeLimitFor(const MachOImage& image, ErrorText* error) {
  if (!isSignable(image.filetype)) {
    return reject(error, fmt::format("Mach-O file type {} cannot be signed", image.filetype));
  }
  if (!checkSegments(image, error)) return std::nullopt;
  if (!image.signature) return alignUp(image.bytes.size(), kSignatureAlignment);

  const uint64_t start = image.signature->dataoff;
  const uint64_t end = start + image.signature->datasize;
  const uint64_t linkEdit = image.segment(macho::kLinkEditSegment)->fileoff;
  if (start < linkEdit || start < image.commandsEnd || start > image.bytes.size()) {
    return reject(error, "the old signature lies outside of __LINKEDIT");
  }
  if (end + kTailSlack < image.bytes.size()) {
    return reject(error,
                  fmt::format("{} bytes follow the old signature", image.bytes.size() - end));
  }
  return start;
}

std::optional<SignaturePlacement> placeSignature(const MachOImage& image, uint64_t signatureSize,
                                                 ErrorText* error) {
  const auto limit = codeLimitFor(image, error);
  if (!limit) return std::nullopt;
  if (*limit + signatureSize > kFarthestOffset) {
    fail(error, "the image is too large to be signed");
    return std::nullopt;
  }
  constexpr uint64_t kCommandSize =
      sizeof(macho::macho_linkedit_data_command<macho::Pointer64<macho::LittleEndian>>);
  const uint64_t headSize = image.commandsEnd + (image.signature ? 0 : kCommandSize);
  if (!image.signature && (headSize > commandRoomEnd(image) || headSize > image.bytes.size())) {
    fail(error, "not enough room in load commands to add LC_CODE_SIGNATURE");
    return std::nullopt;
  }
  SignaturePlacement placement;
  bool isSound = false;
  placement.head = asText(image.bytes.sub(0, headSize).bytes());
  placement.codeLimit = *limit;
  placement.signatureSize = signatureSize;
  macho::visitModel(image.bytes, [&]<class P>() { isSound = editHead<P>(image, &placement); });
  return ifSound(isSound, placement, error);
}

std::optional<SignaturePlacement> removeSignature(const MachOImage& image, ErrorText* error) {
  // Linkers leave a gap of less than one alignment before a signature; it goes with it.
  constexpr uint64_t kLargestGap = 12;
  SignaturePlacement placement;
  bool isSound = false;
  placement.head = asText(image.bytes.sub(0, image.commandsEnd).bytes());
  placement.codeLimit = image.bytes.size();
  if (!image.signature) return placement;
  const auto limit = codeLimitFor(image, error);
  if (!limit) return std::nullopt;
  placement.codeLimit = *limit;
  const uint64_t gap = *limit - image.stringPoolEnd;
  if (image.stringPoolEnd > 0 && image.stringPoolEnd < *limit && gap <= kLargestGap) {
    placement.codeLimit = image.stringPoolEnd;
  }
  macho::visitModel(image.bytes, [&]<class P>() { isSound = cutCommand<P>(image, &placement); });
  return ifSound(isSound, placement, error);
}

}  // namespace tovrek::signing
