#include "icons/IconConverter.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "host/StdioFile.h"
#include "host/bytes.h"
#include "host/files.h"
#include "host/paths.h"
#include "icons/image_data.h"
#include "icons/pixel_rows.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

constexpr std::string_view kSignature("\x89PNG\r\n\x1a\n", 8);
constexpr uint64_t kMaxMemory = uint64_t{512} << 20;
// The chunks and the result stand side by side at the end.
constexpr uint64_t kMaxChunkMemory = kMaxMemory / 2;
constexpr uint64_t kMaxTrial = uint64_t{64} << 20;
// What a chunk takes beyond its bytes while their list grows: files may consist of empty chunks.
constexpr uint64_t kChunkOverhead = 3 * sizeof(PngChunk);
constexpr size_t kMaxImageChunk = 524288;
constexpr uint8_t kLastFilterType = 4;

// What init_chunk answers.
enum : int { kEndOfFile = 0, kChunk = 1, kTooLong = -1, kNoMemory = -2, kShort = -3 };

void appendChunk(std::string& bytes, std::string_view typeAndData, uint32_t crc) {
  appendBig32(&bytes, static_cast<uint32_t>(typeAndData.size() - 4));
  bytes += typeAndData;
  appendBig32(&bytes, crc);
}

std::optional<std::string> withoutPngEnding(const std::string& path) {
  if (path.size() < 4) return std::nullopt;
  if (!equalsIgnoringCase(std::string_view(path).substr(path.size() - 4), ".png")) {
    return std::nullopt;
  }
  return path.substr(0, path.size() - 4);
}

// Packed and unpacked image data, the room for the new packed form and that form itself live side
// by side for a moment.
bool fitsMemory(uint64_t bytesHeld, uint64_t imageSize) {
  return imageSize <= kMaxMemory &&
         bytesHeld + 2 * imageSize + deflatedBound(imageSize) <= kMaxMemory;
}

}  // namespace

int IconConverter::process(const std::string& path) {
  const int result = convert(path, outputPath(path));
  reset_chunks();
  return result;
}

bool IconConverter::makeStandardIcon(const std::string& source, const std::string& destination) {
  settings_.rewrite = true;
  const int result = convert(source, destination);
  reset_chunks();
  return result == kNotOptimised ? CopyStandardIconFile(source, destination) : result != kFailed;
}

int IconConverter::convert(const std::string& path, const std::string& target) {
  const bool listing = settings_.listChunks || settings_.verbose;
  const std::string prefix = listing ? "    " : path + " : ";
  ErrorText error;
  const auto failed = [&] {
    printOut(prefix + error.text() + "\n");
    return kFailed;
  };

  if (!readChunks(path, &error)) {
    printOut(fmt::format("{} : {}\n", path, error.text()));
    return kFailed;
  }
  if (!isOptimised() && !settings_.processAnyway) {
    printOut(fmt::format("{} : not an -iphone crushed PNG file\n", path));
    return kNotOptimised;
  }
  if (!isWhole()) {
    error.set("missing IEND chunk");
    return failed();
  }
  if (dataAfterEnd_) {
    printOut(prefix + "Extra data after IEND, very suspicious! Excluded from conversion\n");
  }
  if (settings_.listChunks) list();

  const std::optional<PngHeader> imageHeader = header(&error);
  if (!imageHeader) return failed();
  if (settings_.verbose) printOut(imageHeader->description());
  const std::optional<std::string> bytes = standardBytes(*imageHeader, &error);
  if (!bytes) return failed();
  if (!settings_.rewrite) return kConverted;

  printOut(fmt::format("writing to file {}\n", target));
  if (!writeFileAtomically(target, *bytes)) {
    printOut("    failed to create output file!\n");
    return kFailed;
  }
  return kConverted;
}

std::optional<std::string> IconConverter::standardForm(std::string_view png, uint64_t mostPixels) {
  ErrorText error;
  const StdioFile stream = openBytes(png);
  std::optional<std::string> bytes;
  if (stream != nullptr && readChunks(stream.get(), png.size(), &error) && isOptimised() &&
      isWhole()) {
    const std::optional<PngHeader> imageHeader = header(&error);
    const bool isSmall =
        imageHeader && uint64_t{imageHeader->width} * imageHeader->height <= mostPixels;
    if (isSmall) bytes = standardBytes(*imageHeader, &error);
  }
  reset_chunks();
  return bytes;
}

std::optional<std::string> IconConverter::standardBytes(const PngHeader& header,
                                                        ErrorText* error) const {
  const std::optional<ImageRun> run = imageRun(error);
  if (!run) return std::nullopt;
  std::optional<std::string> imageData;
  if (header.isEightBitColor()) {
    imageData = recode(header, *run, error);
    if (!imageData) return std::nullopt;
  }
  return assemble(*run, imageData);
}

bool IconConverter::readChunks(const std::string& path, ErrorText* error) {
  reset_chunks();
  const StdioFile file = openRegularFile(path);
  const std::optional<uint64_t> length = fileSize(path);
  if (file == nullptr || !length) return fail(error, "not found or could not be opened");
  return readChunks(file.get(), *length, error);
}

bool IconConverter::readChunks(std::FILE* stream, uint64_t length, ErrorText* error) {
  reset_chunks();
  std::string signature(kSignature.size(), '\0');
  if (std::fread(signature.data(), 1, signature.size(), stream) != signature.size() ||
      signature != kSignature) {
    return fail(error, "not a PNG file");
  }
  int result = kChunk;
  while (result == kChunk && (chunks_.empty() || chunks_.back().type() != "IEND")) {
    result = init_chunk(stream, length);
  }
  switch (result) {
    case kTooLong:
      return fail(error, "invalid chunk size");
    case kNoMemory:
      return fail(error, "out of memory");
    case kShort:
      return fail(error, "premature end of file");
    default:
      dataAfterEnd_ = std::fgetc(stream) != EOF;
      return true;
  }
}

int IconConverter::init_chunk(std::FILE* stream, uint64_t fileLength) {
  const auto debug = [this](const std::string& text) {
    if (settings_.debug) printOut("    informational : " + text);
  };
  // Answers how many of the number's four bytes there were.
  const auto readNumber = [stream](uint32_t* value) {
    std::string bytes(4, '\0');
    const size_t got = std::fread(bytes.data(), 1, bytes.size(), stream);
    *value = *readBig32(bytes, 0);
    return got;
  };

  PngChunk chunk;
  if (const size_t got = readNumber(&chunk.length); got != 4) {
    if (got != 0) debug("failed to read chunk length");
    return kEndOfFile;
  }
  if (uint64_t{chunk.length} + 4 > fileLength) {
    debug(fmt::format("chunk length {} larger than file\n", chunk.length));
    return kTooLong;
  }
  const uint64_t size = uint64_t{chunk.length} + 4;
  bool haveMemory = bytesHeld_ + size + kChunkOverhead <= kMaxChunkMemory;
  if (haveMemory) {
    try {
      chunk.typeAndData.resize(size);
    } catch (const std::bad_alloc&) {
      haveMemory = false;
    }
  }
  if (!haveMemory) {
    debug(fmt::format("no memory for chunk length {}\n", chunk.length));
    return kNoMemory;
  }
  if (std::fread(chunk.typeAndData.data(), 1, size, stream) != size) {
    debug(fmt::format("failed to read chunk length {}\n", chunk.length));
    return kShort;
  }
  if (readNumber(&chunk.crc) != 4) {
    debug("failed to read chunk crc32");
    return kShort;
  }
  bytesHeld_ += size + kChunkOverhead;
  chunks_.push_back(std::move(chunk));
  return kChunk;
}

void IconConverter::reset_chunks() {
  chunks_ = {};
  bytesHeld_ = 0;
  dataAfterEnd_ = false;
}

// Image chunks are written with their own checksum, all others with the one that they came with.
void IconConverter::list() const {
  for (const PngChunk& chunk : chunks_) {
    printOut(fmt::format("    chunk : {}  length {:6}  CRC32 {:08X}", chunk.type(), chunk.length,
                         chunk.crc));
    const uint32_t right = pngCrc(chunk.typeAndData);
    if (right == chunk.crc) {
      printOut("\n");
    } else if (chunk.type() == "IDAT" && settings_.rewrite) {
      printOut(fmt::format(" -> invalid, changed to {:08X}\n", right));
    } else {
      printOut(fmt::format(" --> CRC32 check invalid! Should be {:08X}\n", right));
    }
  }
}

std::optional<PngHeader> IconConverter::header(ErrorText* error) const {
  const size_t position = isOptimised() ? 1 : 0;
  if (position >= chunks_.size() || chunks_[position].type() != "IHDR") {
    fail(error, "no IHDR chunk found");
    return std::nullopt;
  }
  return PngHeader::parse(chunks_[position].data(), error);
}

std::optional<IconConverter::ImageRun> IconConverter::imageRun(ErrorText* error) const {
  const auto isImage = [](const PngChunk& chunk) { return chunk.type() == "IDAT"; };
  const auto refuse = [error](const char* text) {
    fail(error, text);
    return std::nullopt;
  };
  const auto first = std::find_if(chunks_.begin(), chunks_.end(), isImage);
  const auto end = std::find_if_not(first, chunks_.end(), isImage);
  if (first == chunks_.end()) return refuse("no IDAT chunks found");
  if (std::any_of(end, chunks_.end(), isImage)) return refuse("IDAT chunks are not consecutive");
  if (std::all_of(first, end, [](const PngChunk& chunk) { return chunk.length == 0; })) {
    return refuse("all IDAT chunks are empty");
  }
  return ImageRun{static_cast<size_t>(first - chunks_.begin()),
                  static_cast<size_t>(end - chunks_.begin())};
}

std::optional<std::string> IconConverter::recode(const PngHeader& header, ImageRun run,
                                                 ErrorText* error) const {
  const uint64_t size = header.dataSize();
  std::string packed;
  for (size_t i = run.first; i < run.end; i++) packed += chunks_[i].data();
  // Optimised files leave out the zlib header and checksum.
  const DeflateWrapping wrapping = isOptimised() ? DeflateWrapping::kRaw : DeflateWrapping::kZlib;
  // What is too large is unpacked as far as it goes, to tell a false size from a large image.
  const uint64_t room = fitsMemory(2 * bytesHeld_, size) ? size : std::min(size, kMaxTrial);
  std::optional<std::vector<uint8_t>> bytes = inflateImageData(packed, wrapping, size, room, error);
  if (!bytes) return std::nullopt;

  size_t position = 0;
  for (const PngPass& pass : header.passes()) {
    const size_t end = position + pass.dataSize();
    for (; position < end; position += pass.bytesPerLine + 1) {
      const uint8_t filter = (*bytes)[position];
      if (filter <= kLastFilterType) continue;
      fail(error, fmt::format("unknown row filter type ({})", filter));
      return std::nullopt;
    }
  }
  if (isOptimised()) makeStandard(header, *bytes);

  std::optional<std::string> repacked = deflateImageData(*bytes, error);
  if (repacked && settings_.verbose) {
    printOut(fmt::format("    repacked size: {} bytes\n", repacked->size()));
  }
  return repacked;
}

void IconConverter::makeStandard(const PngHeader& header, std::vector<uint8_t>& bytes) const {
  if (settings_.verbose) printOut("    swapping BGR(A) to RGB(A)\n");
  size_t position = 0;
  for (const PngPass& pass : header.passes()) {
    const PixelRows rows{std::span(bytes).subspan(position, pass.dataSize()), pass.bytesPerLine,
                         static_cast<size_t>(header.bitsPerPixel()) / 8};
    position += pass.dataSize();
    swapRedAndBlue(rows);
    if (!header.hasAlpha() || !settings_.updateAlpha) continue;
    removeRowFilters(rows);
    demultiplyAlpha(rows);
    applyRowFilters(rows);
  }
}

std::string IconConverter::outputPath(const std::string& path) const {
  const std::string result = settings_.outputDirectory.empty()
                                 ? path
                                 : settings_.outputDirectory + "/" + lastPathComponent(path);
  if (settings_.suffix.empty()) return result;
  return withoutPngEnding(result).value_or(result) + settings_.suffix + ".png";
}

std::string IconConverter::assemble(ImageRun run,
                                    const std::optional<std::string>& imageData) const {
  size_t size = kSignature.size() + (imageData ? imageData->size() : 0);
  for (const PngChunk& chunk : chunks_) size += chunk.typeAndData.size() + 8;
  std::string bytes;
  bytes.reserve(size);
  bytes += kSignature;
  const auto copy = [&](size_t from, size_t to) {
    for (size_t i = from; i < to; i++) appendChunk(bytes, chunks_[i].typeAndData, chunks_[i].crc);
  };
  copy(isOptimised() ? 1 : 0, run.first);
  if (imageData) {
    for (size_t at = 0; at < imageData->size(); at += kMaxImageChunk) {
      const std::string chunk = "IDAT" + imageData->substr(at, kMaxImageChunk);
      appendChunk(bytes, chunk, pngCrc(chunk));
    }
  } else {
    for (size_t i = run.first; i < run.end; i++) {
      appendChunk(bytes, chunks_[i].typeAndData, pngCrc(chunks_[i].typeAndData));
    }
  }
  copy(run.end, chunks_.size());
  return bytes;
}

bool IconConverter::ConvertCopyIconFile(const std::string& outputDirectory,
                                        const std::string& source, const std::string& outputName,
                                        const std::string& expectedName) {
  try {
    settings_.outputDirectory = outputDirectory;
    settings_.rewrite = true;
    const int result = process(source);
    if (result != kNotOptimised && outputName == expectedName) return result != kFailed;
    CopyStandardIconFile(source, outputDirectory + "/" + outputName);
    return true;
  } catch (const std::bad_alloc&) {
    reset_chunks();
    printOut("Insufficient mememory\n");
    return false;
  }
}

}  // namespace tovrek
