#include "tests/fuzz/archive/archive_fuzzing.h"

#include <cstdlib>
#include <span>

#include "archive/ArchiveReader.h"
#include "programs/unzip/ExtractionPlan.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::test {
namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void checkName(const std::string& name) {
  std::string path;
  if (!unzip::destinationPath(name, &path)) return;
  require(!path.starts_with('/') && !path.ends_with('/'));
  require(("/" + path + "/").find("/../") == std::string::npos);
}

}  // namespace

std::vector<std::string> readArchive(const std::string& archive) {
  constexpr uint64_t kLargest = 16 << 20;
  std::vector<std::string> result;
  archive::ArchiveReader reader;
  const archive::Bytes bytes = std::as_bytes(std::span(archive.data(), archive.size()));
  if (reader.openBytes(bytes, nullptr) != archive::ArchiveReader::Opened::kDone) return result;
  archive::Inflater inflater;
  for (const archive::Entry& entry : reader.entries()) {
    checkName(entry.name);
    entry.modified();
    const bool known = entry.method == archive::kStored || entry.method == archive::kDeflated;
    if (!known || entry.isEncrypted() || entry.size > kLargest) continue;
    archive::Buffer room;
    archive::Bytes contents;
    std::string fault;
    if (!unzip::unpackEntry(reader, entry, &inflater, &room, &contents, &fault)) continue;
    require(contents.size() == entry.size);
    result.emplace_back(reinterpret_cast<const char*>(contents.data()), contents.size());
  }
  return result;
}

}  // namespace tovrek::test
