#include "programs/unzip/listing.h"

#include <fmt/format.h>

#include <ctime>

#include "host/printable.h"

namespace tovrek::unzip {
namespace {

using archive::Entry;

std::string dateAndTime(const Entry& entry) {
  const time_t time = entry.modified();
  std::tm parts{};
  ::localtime_r(&time, &parts);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", parts.tm_year + 1900, parts.tm_mon + 1,
                     parts.tm_mday, parts.tm_hour, parts.tm_min);
}

std::string saved(uint64_t size, uint64_t packed) {
  if (size == 0) return "  0%";
  const double share =
      (static_cast<double>(size) - static_cast<double>(packed)) / static_cast<double>(size) * 100;
  return fmt::format("{:3.0f}%", share);
}

std::string methodName(const Entry& entry) {
  if (entry.method == archive::kStored) return "Stored";
  if (entry.method == archive::kBzip2) return "BZip2";
  if (entry.method != archive::kDeflated) return fmt::format("Unk:{:03}", entry.method);
  constexpr std::string_view kLevels = "NXFS";  // by the two level bits of the flags
  return fmt::format("Defl:{}", kLevels[entry.flags >> 1 & 3]);
}

std::string line(const Entry& entry, bool verbose) {
  if (!verbose)
    return fmt::format("{:9}  {}   {}\n", entry.size, dateAndTime(entry), printable(entry.name));
  return fmt::format("{:8}  {:<6} {:8} {} {} {:08x}  {}\n", entry.size, methodName(entry),
                     entry.compressedSize, saved(entry.size, entry.compressedSize),
                     dateAndTime(entry), entry.crc, printable(entry.name));
}

std::string names(const std::vector<const Entry*>& entries) {
  std::string text;
  for (const Entry* entry : entries) text += entry->name + "\n";
  return text;
}

std::string table(const std::vector<const Entry*>& entries, const UnzipOptions& options) {
  std::string text;
  const bool verbose = options.action == UnzipOptions::Action::kListVerbosely;
  if (options.quiet < 2) {
    text += verbose ? " Length   Method    Size  Cmpr    Date    Time   CRC-32   Name\n"
                      "--------  ------  ------- ---- ---------- ----- --------  ----\n"
                    : "  Length      Date    Time    Name\n"
                      "---------  ---------- -----   ----\n";
  }
  uint64_t size = 0;
  uint64_t packed = 0;
  for (const Entry* entry : entries) {
    text += line(*entry, verbose);
    size += entry->size;
    packed += entry->compressedSize;
  }
  if (options.quiet >= 2) return text;
  const char* plural = entries.size() == 1 ? "" : "s";
  if (verbose) {
    text += fmt::format(
        "--------          -------  ---                            -------\n"
        "{:8}         {:8} {}                            {} file{}\n",
        size, packed, saved(size, packed), entries.size(), plural);
  } else {
    text +=
        fmt::format("---------                     -------\n{:9}                     {} file{}\n",
                    size, entries.size(), plural);
  }
  return text;
}

}  // namespace

void printListing(const std::vector<const Entry*>& entries, const UnzipOptions& options,
                  const Streams& streams) {
  const bool bare = options.action == UnzipOptions::Action::kNames;
  streams.out(bare ? names(entries) : table(entries, options));
}

}  // namespace tovrek::unzip
