#include "programs/zip/Zip.h"

#include <fmt/format.h>

#include <cstdlib>
#include <optional>

#include "host/files.h"
#include "host/parallel.h"
#include "programs/zip/ArchiveUpdate.h"
#include "programs/zip/messages.h"
#include "programs/zip/status.h"

namespace tovrek::zip {
namespace {

constexpr char kUsage[] =
    "zip: packs files into zip archives\n"
    "\n"
    "Usage: zip [options] archive[.zip] files [-x excluded names] [-i included names]\n"
    "\n"
    "  -r   pack folders with their contents     -0   store only\n"
    "  -y   store symbolic links as links        -1   pack faster\n"
    "  -j   leave out the folders of names       -9   pack better\n"
    "  -D   make no entries for folders          -q   quiet\n"
    "  -X   leave out the exact times            -d   delete entries from the archive\n"
    "  -x   leave out names that match           -i   take only names that match\n"
    "  -h   this help                            -v   the version\n";

int refuseArguments(const Messages& messages, const ErrorText& error) {
  return messages.failWith(kBadArguments,
                           fmt::format("Invalid command arguments ({})", error.text()));
}

int pack(const ZipOptions& options, const Messages& messages, const archive::ArchiveReader* old) {
  archive::PackedSource source;
  const char* sourcePath = std::getenv("TOVREK_PACKED_SOURCE");
  bool hasSource = false;
  const auto openSource = [&] {
    hasSource = sourcePath != nullptr && *sourcePath != '\0' && source.open(sourcePath);
  };
  // Both take some milliseconds for a large app.
  auto opening = startHelper(openSource);
  if (!opening) openSource();
  FileList files(options);
  ErrorText error;
  const bool collected = files.collect(&error);
  if (opening) opening->join();
  for (const std::string& warning : files.warnings()) messages.warn(warning);
  for (const std::string& text : files.unreadable()) messages.complain(text);
  if (!collected) return refuseArguments(messages, error);
  if (files.items().empty()) return messages.failNothingToDo();
  const auto standIns = archive::StandIns::asked(&error);
  if (error.isSet() || (standIns && !files.findStandIns(*standIns, &error))) {
    return messages.failWith(kSomeUnreadable, error.text());
  }
  const int status = ArchiveUpdate(options, messages, old, hasSource ? &source : nullptr,
                                   standIns ? &*standIns : nullptr)
                         .addItems(files.items());
  return status == kDone && files.incomplete() ? kSomeUnreadable : status;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  ZipOptions options;
  const Messages messages(options, streams);
  ErrorText error;
  if (!options.read(arguments.words, &error)) return refuseArguments(messages, error);
  if (options.action == ZipOptions::Action::kUsage ||
      options.action == ZipOptions::Action::kVersion) {
    streams.out(options.action == ZipOptions::Action::kUsage ? kUsage : versionLine("zip"));
    return kDone;
  }
  archive::ArchiveReader old;
  const bool exists = fileSize(options.archive).value_or(0) > 0;
  if (exists && old.open(options.archive, &error) != archive::ArchiveReader::Opened::kDone) {
    return messages.failWith(kDamagedArchive, fmt::format("Zip file structure invalid ({}): {}",
                                                          options.archive, error.text()));
  }
  if (options.action == ZipOptions::Action::kAdd) {
    return pack(options, messages, exists ? &old : nullptr);
  }
  if (exists) return ArchiveUpdate(options, messages, &old, nullptr, nullptr).removeEntries();
  messages.warn(options.archive + " not found or empty");
  return messages.failNothingToDo();
}

}  // namespace tovrek::zip
