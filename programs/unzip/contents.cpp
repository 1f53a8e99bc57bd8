#include "programs/unzip/contents.h"

#include <fmt/format.h>

#include <functional>

#include "archive/PieceInflater.h"
#include "archive/ordered_work.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::ArchiveReader;
using archive::Entry;

using UsePiece = std::function<bool(archive::Bytes)>;

bool isUnpackedInPieces(const Entry& entry) {
  return entry.method == archive::kDeflated && entry.size > kLargestInMemory;
}

// What is wrong with an entry, which `use` gets in pieces as far as they are sound. When it answers
// false, the rest is left.
std::string unpackInPieces(const ArchiveReader& reader, const Entry& entry, const UsePiece& use) {
  archive::PieceInflater inflater;
  uint64_t size = 0;
  uint32_t crc = 0;
  bool goesOn = true;
  const bool isSound = inflater.feed(reader.packed(entry), [&](archive::Bytes piece) {
    size += piece.size();
    crc = archive::crcOf(piece, crc);
    goesOn = size > entry.size || use(piece);
    return goesOn && size <= entry.size;
  });
  if (!goesOn) return {};
  if (!isSound || !inflater.hasEnded() || size != entry.size) return kBadData;
  return crcFault(entry, crc);
}

// Unpacks all entries and calls `use` for each in order: with its fault, and with a way to go
// through its contents when there is none.
template <class Use>
void forEachContents(const ArchiveReader& reader, const Entries& entries, const Use& use) {
  struct Unpacked {
    archive::Buffer room;
    archive::Bytes contents;
    std::string fault;
  };
  std::vector<Unpacked> results(entries.size());
  std::vector<archive::Inflater> inflaters(archive::workerCount());
  archive::OrderedWork jobs;
  jobs.count = entries.size();
  jobs.weight = [&](size_t i) {
    const bool isCopied =
        entries[i]->method != archive::kStored && !isUnpackedInPieces(*entries[i]);
    return isCopied ? entries[i]->size : 0;
  };
  jobs.work = [&](size_t worker, size_t i) {
    Unpacked& result = results[i];
    if (isUnpackedInPieces(*entries[i])) {
      result.fault = unpackInPieces(reader, *entries[i], [](archive::Bytes) { return true; });
    } else {
      unpackEntry(reader, *entries[i], &inflaters[worker], &result.room, &result.contents,
                  &result.fault);
    }
  };
  jobs.deliver = [&](size_t i) {
    const auto goThrough = [&](const UsePiece& usePiece) {
      if (isUnpackedInPieces(*entries[i])) {
        // Once more: it was found sound, and was not kept.
        results[i].fault = unpackInPieces(reader, *entries[i], usePiece);
      } else {
        usePiece(results[i].contents);
      }
    };
    const bool goOn = use(*entries[i], results[i].fault, goThrough);
    results[i].room = archive::Buffer();
    return goOn;
  };
  archive::runInOrder(jobs);
}

}  // namespace

int testEntries(const std::string& path, const ArchiveReader& reader, const Entries& entries,
                const UnzipOptions& options, const Streams& streams) {
  int status = kDone;
  forEachContents(reader, entries, [&](const Entry& entry, const std::string& fault, const auto&) {
    if (options.quiet == 0) {
      streams.out(fmt::format("    testing: {}  {}\n", paddedName(entry.name),
                              fault.empty() ? " OK" : fault));
    } else if (!fault.empty()) {
      streams.out(fmt::format("{}  {}\n", paddedName(entry.name), fault));
    }
    if (!fault.empty()) status = kDamaged;
    return true;
  });
  if (status != kDone) {
    streams.out(fmt::format("At least one error was detected in {}.\n", path));
  } else if (options.quiet < 2) {
    streams.out(fmt::format("No errors detected in compressed data of {}.\n", path));
  }
  return status;
}

int pipeEntries(const ArchiveReader& reader, const Entries& entries, const Streams& streams) {
  int status = kDone;
  forEachContents(reader, entries,
                  [&](const Entry& entry, const std::string& fault, const auto& goThrough) {
                    if (fault.empty()) {
                      goThrough([&](archive::Bytes piece) {
                        streams.out(archive::asText(piece));
                        return !outputFailed();
                      });
                    }
                    if (!fault.empty()) {
                      streams.error(fmt::format("{}  {}\n", paddedName(entry.name), fault));
                      status = kDamaged;
                    }
                    if (outputFailed()) status = kCannotWrite;
                    return status != kCannotWrite;
                  });
  return status;
}

}  // namespace tovrek::unzip
