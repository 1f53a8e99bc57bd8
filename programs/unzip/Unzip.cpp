#include "programs/unzip/Unzip.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "archive/ArchiveReader.h"
#include "archive/ordered_work.h"
#include "host/file_io.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/unzip/Extraction.h"
#include "programs/unzip/UnzipOptions.h"
#include "programs/unzip/listing.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::ArchiveReader;
using archive::Entry;
using Action = UnzipOptions::Action;
using Entries = std::vector<const Entry*>;

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
constexpr char kVersion[] = "unzip (Tovrek)\n";

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

void explainNoArchive(const std::string& path) {
  printError(
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
int refuseUnreadable(const Entries& entries) {
  int status = kDone;
  for (const Entry* entry : entries) {
    if (entry->isEncrypted()) {
      printError(fmt::format("   skipping: {}  encrypted entries are not supported\n",
                             paddedName(entry->name)));
      status = std::max(status, kEncrypted);
    } else if (entry->method != archive::kStored && entry->method != archive::kDeflated) {
      printError(fmt::format("   skipping: {}  unsupported compression method {}\n",
                             paddedName(entry->name), entry->method));
      status = std::max(status, kUnknownMethod);
    }
  }
  return status;
}

// Unpacks all entries in memory and calls `use` for each in order.
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
    return entries[i]->method == archive::kDeflated ? entries[i]->size : 0;
  };
  jobs.work = [&](size_t worker, size_t i) {
    Unpacked& result = results[i];
    unpackEntry(reader, *entries[i], &inflaters[worker], &result.room, &result.contents,
                &result.fault);
  };
  jobs.deliver = [&](size_t i) {
    const bool goOn = use(*entries[i], results[i].contents, results[i].fault);
    results[i].room = archive::Buffer();
    return goOn;
  };
  archive::runInOrder(jobs);
}

int testEntries(const std::string& path, const ArchiveReader& reader, const Entries& entries,
                const UnzipOptions& options) {
  int status = kDone;
  forEachContents(reader, entries,
                  [&](const Entry& entry, archive::Bytes, const std::string& fault) {
                    if (options.quiet == 0) {
                      printOut(fmt::format("    testing: {}  {}\n", paddedName(entry.name),
                                           fault.empty() ? " OK" : fault));
                    } else if (!fault.empty()) {
                      printOut(fmt::format("{}  {}\n", paddedName(entry.name), fault));
                    }
                    if (!fault.empty()) status = kDamaged;
                    return true;
                  });
  if (status != kDone) {
    printOut(fmt::format("At least one error was detected in {}.\n", path));
  } else if (options.quiet < 2) {
    printOut(fmt::format("No errors detected in compressed data of {}.\n", path));
  }
  return status;
}

int pipeEntries(const ArchiveReader& reader, const Entries& entries) {
  int status = kDone;
  forEachContents(reader, entries,
                  [&](const Entry& entry, archive::Bytes contents, const std::string& fault) {
                    if (!fault.empty()) {
                      printError(fmt::format("{}  {}\n", paddedName(entry.name), fault));
                      status = kDamaged;
                      return true;
                    }
                    const std::string_view text(reinterpret_cast<const char*>(contents.data()),
                                                contents.size());
                    if (!writeAll(STDOUT_FILENO, text)) status = kCannotWrite;
                    return status != kCannotWrite;
                  });
  return status;
}

int extractEntries(const std::string& path, const ArchiveReader& reader, const Entries& entries,
                   const UnzipOptions& options) {
  const std::string folder = options.destination.empty() ? "." : options.destination;
  if (::mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
    printError(fmt::format("checkdir:  cannot create extraction directory: {}\n           {}\n",
                           folder, std::strerror(errno)));
    return kDamaged;
  }
  const UniqueFd destination(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!destination.valid()) {
    printError(fmt::format("checkdir:  cannot open extraction directory: {}\n           {}\n",
                           folder, std::strerror(errno)));
    return kDamaged;
  }
  FolderCursor cursor(destination.get());
  ExtractionPlan plan;
  ErrorText error;
  if (!planExtraction(entries, options, &cursor, &plan, &error)) {
    printError(fmt::format("error [{}]:  {}; nothing was unpacked\n", path, error.text()));
    return kDamaged;
  }
  return extract(reader, plan, options, destination.get());
}

// The chosen entries. Patterns that chose none are reported.
Entries chosenEntries(const ArchiveReader& reader, const UnzipOptions& options, int* status) {
  Entries entries;
  for (const Entry& entry : reader.entries()) {
    if (options.selects(entry.name)) entries.push_back(&entry);
  }
  if (entries.empty() && !options.members.empty()) *status = kNothingMatched;
  const bool lists = options.action == Action::kList || options.action == Action::kListVerbosely;
  for (const std::string& member : options.members) {
    const bool matched = std::any_of(entries.begin(), entries.end(), [&](const Entry* entry) {
      return ::fnmatch(member.c_str(), entry->name.c_str(), 0) == 0;
    });
    if (matched || lists) continue;
    printError(fmt::format("caution: filename not matched:  {}\n", member));
    *status = kNothingMatched;
  }
  return entries;
}

int processArchive(const std::string& path, const UnzipOptions& options) {
  if (options.quiet == 0 && options.action != Action::kPipe && options.action != Action::kNames) {
    printOut(fmt::format("Archive:  {}\n", path));
  }
  ArchiveReader reader;
  ErrorText error;
  switch (reader.open(path, &error)) {
    case ArchiveReader::Opened::kDone:
      break;
    case ArchiveReader::Opened::kUnreadable:
      printError(
          fmt::format("error:  cannot open zipfile [ {} ]\n        {}\n", path, error.text()));
      return kNoArchive;
    case ArchiveReader::Opened::kNoEndRecord:
      explainNoArchive(path);
      return kNoArchive;
    case ArchiveReader::Opened::kDamaged:
      printError(fmt::format("error [{}]:  {}\n", path, error.text()));
      return kDamaged;
  }
  if (options.quiet == 0 && !reader.comment().empty() && options.action != Action::kPipe &&
      options.action != Action::kNames) {
    printOut(reader.comment() + "\n");
  }
  if (reader.entries().empty()) {
    printError(fmt::format("warning [{}]:  zipfile is empty\n", path));
    return kWarning;
  }
  int status = kDone;
  const Entries entries = chosenEntries(reader, options, &status);
  const auto worse = [&](int other) { return std::max(status, other); };
  switch (options.action) {
    case Action::kList:
    case Action::kListVerbosely:
    case Action::kNames:
      printListing(entries, options);
      return status;
    default:
      break;
  }
  if (const int refused = refuseUnreadable(entries); refused != kDone) return refused;
  if (entries.empty()) return status;
  if (options.action == Action::kTest) return worse(testEntries(path, reader, entries, options));
  if (options.action == Action::kPipe) return worse(pipeEntries(reader, entries));
  return worse(extractEntries(path, reader, entries, options));
}

}  // namespace

int runUnzipProgram(const std::vector<std::string>& arguments) {
  UnzipOptions options;
  ErrorText error;
  if (!options.read(arguments, &error)) {
    printError(fmt::format("error:  {}\n", error.text()));
    printError(kUsage);
    return kBadOptions;
  }
  if (options.action == Action::kUsage || options.action == Action::kVersion) {
    printOut(options.action == Action::kUsage ? kUsage : kVersion);
    return kDone;
  }
  const std::vector<std::string> archives = archivesFor(options.archive);
  if (archives.empty()) {
    printError(
        fmt::format("unzip:  cannot find or open {0}, {0}.zip or {0}.ZIP.\n", options.archive));
    return kNoArchive;
  }
  int status = kDone;
  for (const std::string& path : archives) status = std::max(status, processArchive(path, options));
  return status;
}

}  // namespace tovrek::unzip
