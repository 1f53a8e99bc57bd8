#include "programs/unzip/Unzip.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "archive/ArchiveReader.h"
#include "archive/StandIns.h"
#include "archive/limits.h"
#include "archive/patterns.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/printable.h"
#include "host/utf8.h"
#include "programs/unzip/Extraction.h"
#include "programs/unzip/UnzipOptions.h"
#include "programs/unzip/contents.h"
#include "programs/unzip/listing.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::ArchiveReader;
using archive::Entry;
using Action = UnzipOptions::Action;

constexpr char kUsage[] =
    "unzip: lists, tests and unpacks zip archives\n"
    "\n"
    "Usage: unzip [options] archive[.zip] [members] [-x excluded members] [-d folder]\n"
    "\n"
    "  -d DIR  unpack into DIR                -l   list the entries\n"
    "  -o      replace items without asking   -v   list them with method, size and CRC\n"
    "  -n      never replace items            -Z1  list the bare names\n"
    "  -j      leave out the folders          -t   test the entries\n"
    "  -x      leave out these members        -p   unpack to standard output\n"
    "  -q      quiet; -qq quieter             -h   this help\n";

// The existing archives that the operand means: the file of that name, with or without ".zip", else
// those that it matches as a pattern.
std::vector<std::string> archivesFor(const std::string& operand) {
  for (const char* ending : {"", ".zip", ".ZIP"}) {
    if (fileExists(operand + ending)) return {operand + ending};
  }
  std::vector<std::string> matches;
  const std::string pattern = lastPathComponent(operand);
  if (pattern.find_first_of("*?[") == std::string::npos) return matches;
  const bool hasFolder = operand.find('/') != std::string::npos;
  const std::string folder = hasFolder ? containingFolder(operand) : std::string();
  for (const std::string& name :
       listDirectory(hasFolder ? folder : ".").value_or(std::vector<std::string>())) {
    if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) == 0) {
      matches.push_back(hasFolder ? joinPath(folder, name) : name);
    }
  }
  std::sort(matches.begin(), matches.end());
  return matches;
}

void explainNoArchive(const std::string& path, const Streams& streams) {
  streams.error(
      fmt::format("[{0}]\n"
                  "  End-of-central-directory signature not found.  Either this file is not\n"
                  "  a zipfile, or it constitutes one disk of a multi-part archive.  In the\n"
                  "  latter case the central directory and zipfile comment will be found on\n"
                  "  the last disk(s) of this archive.\n"
                  "unzip:  cannot find zipfile directory in {0}, period.\n",
                  path));
}

// What cannot be unpacked at all: encrypted entries and unknown methods. The status, and the lines
// on standard error.
int refuseUnreadable(const Entries& entries, const Streams& streams) {
  int status = kDone;
  for (const Entry* entry : entries) {
    if (entry->isEncrypted()) {
      streams.error(fmt::format("   skipping: {}  encrypted entries are not supported\n",
                                paddedName(entry->name)));
      status = std::max(status, kEncrypted);
    } else if (!isKnownMethod(entry->method)) {
      streams.error(fmt::format("   skipping: {}  unsupported compression method {}\n",
                                paddedName(entry->name), entry->method));
      status = std::max(status, kUnknownMethod);
    }
  }
  return status;
}

int refuseDestination(std::string_view what, const std::string& folder, const Streams& streams) {
  streams.error(fmt::format("checkdir:  cannot {} extraction directory: {}\n           {}\n", what,
                            folder, std::strerror(errno)));
  return kDamaged;
}

// Before anything is made of the archive: one that passes a limit is made to do harm.
bool isWithinLimits(const std::string& path, const Entries& entries, const Streams& streams) {
  ErrorText error;
  if (archive::isWithin(limitsInForce(), entries, &error)) return true;
  streams.error(fmt::format("error [{}]:  {}; nothing was unpacked\n", path, error.text()));
  return false;
}

int extractEntries(const std::string& path, const ArchiveReader& reader, const Entries& entries,
                   const UnzipOptions& options, const Streams& streams) {
  const std::string folder = options.destination.empty() ? "." : options.destination;
  FolderCursor cursor;
  if (!FolderCursor::makeRoot(folder)) return refuseDestination("create", folder, streams);
  if (!cursor.openRoot(folder)) return refuseDestination("open", folder, streams);
  ExtractionPlan plan;
  ErrorText error;
  if (!planExtraction(entries, options, streams, &cursor, &plan, &error)) {
    streams.error(fmt::format("error [{}]:  {}; nothing was unpacked\n", path, error.text()));
    return kDamaged;
  }
  // Without the archive that they are asked for, everything is unpacked.
  const auto standIns = archive::StandIns::asked(nullptr);
  const bool areHere = standIns && standIns->isOf(path);
  return extract(reader, plan, areHere ? &*standIns : nullptr, options, streams, cursor);
}

// The chosen entries. Patterns that chose none are reported.
Entries chosenEntries(const ArchiveReader& reader, const UnzipOptions& options,
                      const Streams& streams, int* status) {
  Entries entries;
  for (const Entry& entry : reader.entries()) {
    if (options.selects(entry.name)) entries.push_back(&entry);
  }
  if (entries.empty() && !options.members.empty()) *status = kNothingMatched;
  if (options.onlyLists()) return entries;
  for (const std::string& member : options.members) {
    const bool matched = std::ranges::any_of(
        entries, [&](const Entry* entry) { return archive::matches(member, entry->name); });
    if (matched) continue;
    streams.error(fmt::format("caution: filename not matched:  {}\n", member));
    *status = kNothingMatched;
  }
  return entries;
}

// kDone, or the status after a text.
int openArchive(const std::string& path, const Streams& streams, ArchiveReader* reader) {
  ErrorText error;
  switch (reader->open(path, &error)) {
    case ArchiveReader::Opened::kDone:
      break;
    case ArchiveReader::Opened::kUnreadable:
      streams.error(
          fmt::format("error:  cannot open zipfile [ {} ]\n        {}\n", path, error.text()));
      return kNoArchive;
    case ArchiveReader::Opened::kNoEndRecord:
      explainNoArchive(path, streams);
      return kNoArchive;
    case ArchiveReader::Opened::kDamaged:
      streams.error(fmt::format("error [{}]:  {}\n", path, error.text()));
      return kDamaged;
  }
  return kDone;
}

int processArchive(const std::string& path, const UnzipOptions& options, const Streams& streams) {
  const bool plain = options.action == Action::kPipe || options.action == Action::kNames;
  const bool introduces = options.quiet == 0 && !plain;
  if (introduces) streams.out(fmt::format("Archive:  {}\n", path));
  ArchiveReader reader;
  if (const int failed = openArchive(path, streams, &reader); failed != kDone) return failed;
  reader.decodeNames();
  if (introduces && !reader.comment().empty()) streams.out(printableLines(reader.comment()) + "\n");
  if (reader.entries().empty()) {
    streams.error(fmt::format("warning [{}]:  zipfile is empty\n", path));
    return kWarning;
  }
  int status = kDone;
  const Entries entries = chosenEntries(reader, options, streams, &status);
  if (options.onlyLists() || options.action == Action::kNames) {
    printListing(entries, options, streams);
    return status;
  }
  if (reader.hadBackslashes()) {
    streams.error(
        fmt::format("warning:  {} appears to use backslashes as path separators\n", path));
    status = std::max(status, kWarning);
  }
  for (const Entry* entry : entries) {
    if (!isUtf8(entry->name)) {
      streams.error(fmt::format("warning:  {} is no name in UTF-8\n", entry->name));
    }
  }
  if (const int refused = refuseUnreadable(entries, streams); refused != kDone) return refused;
  if (entries.empty()) return status;
  if (!isWithinLimits(path, entries, streams)) return std::max<int>(status, kDamaged);
  if (options.action == Action::kTest) {
    return std::max(status, testEntries(path, reader, entries, options, streams));
  }
  if (options.action == Action::kPipe) {
    return std::max(status, pipeEntries(reader, entries, streams));
  }
  return std::max(status, extractEntries(path, reader, entries, options, streams));
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  UnzipOptions options;
  ErrorText error;
  if (!options.read(arguments.words, &error)) {
    streams.error(fmt::format("error:  {}\n", error.text()));
    streams.error(kUsage);
    return kBadOptions;
  }
  if (options.action == Action::kUsage || options.action == Action::kVersion) {
    streams.out(options.action == Action::kUsage ? kUsage : versionLine("unzip"));
    return kDone;
  }
  const std::vector<std::string> archives = archivesFor(options.archive);
  if (archives.empty()) {
    streams.error(
        fmt::format("unzip:  cannot find or open {0}, {0}.zip or {0}.ZIP.\n", options.archive));
    return kNoArchive;
  }
  int status = kDone;
  for (const std::string& path : archives) {
    status = std::max(status, processArchive(path, options, streams));
  }
  return status;
}

}  // namespace tovrek::unzip
