#include "package/checksum.h"

#include <fmt/format.h>

#include <optional>
#include <set>

#include "host/BlockStream.h"
#include "host/StdioFile.h"
#include "host/files.h"
#include "host/paths.h"

namespace tovrek {
namespace {

bool appendFile(const std::string& path, BlockStream& data, ProgressStage* stage) {
  const auto took = [&](size_t size) {
    data.took(size);
    if (stage != nullptr) stage->add(size);
  };
  return readInPieces(
      path, [&data] { return data.room(); }, took);
}

// A link that leads out of the folder would make the checksum depend on the host.
bool leadsOutside(const std::string& link, const std::string& directory) {
  const std::optional<std::string> target = realPath(link);
  const std::optional<std::string> root = realPath(directory);
  return target && root && !target->starts_with(*root + "/");
}

class ContentWalk {
 public:
  ContentWalk(Digest& data, const WrapperLogger& logger, ProgressStage* stage)
      : data_([&data](std::string_view block) { data.update(block); }),
        logger_(logger),
        stage_(stage) {}

  // False, and logged, when a folder could not be read.
  bool walk(const std::string& directory) {
    // Names relative to the working directory could lead back to where we are.
    if (!open_.insert(directory).second) return true;
    bool whole = true;
    ErrorText reason;
    const auto take = [&](const WalkedItem& item) {
      return whole = whole && visit(directory, item);
    };
    if (!walkDirectoryIfThere(directory, take, &reason)) {
      logger_.logError(reason.text());
      whole = false;
    }
    open_.erase(directory);
    return whole;
  }

 private:
  // The deep walk reaches the files of every folder by itself. A folder's own turn takes its
  // relative path, which normally names nothing in the working directory; servers know checksums
  // made this way, so it stays.
  bool visit(const std::string& directory, const WalkedItem& item) {
    const std::string path = directory + "/" + item.relativePath;
    if (item.kind == ItemKind::kDirectory || (item.kind == ItemKind::kLink && isDirectory(path))) {
      return walk(item.relativePath);
    }
    // The settings file holds the checksum itself.
    if (containsIgnoringCase(path, "Orvane.plist")) return true;
    const bool readable = item.kind != ItemKind::kLink || !leadsOutside(path, directory);
    // Files of the app are not opened through links.
    const std::string file = item.kind == ItemKind::kLink ? realPath(path).value_or(path) : path;
    if (!readable || !appendFile(file, data_, stage_)) {
      logger_.logError(fmt::format("Error reading file {}", item.relativePath));
    }
    return true;
  }

  BlockStream data_;
  const WrapperLogger& logger_;
  ProgressStage* stage_;
  std::set<std::string> open_;
};

}  // namespace

bool LookForRecursiveFileWith(const std::string& directory, Digest& data,
                              const WrapperLogger& logger, ProgressStage* stage) {
  return ContentWalk(data, logger, stage).walk(directory);
}

std::string CalulateMD5StringFromData(std::string_view data) {
  return hexUpper(digestOf(DigestAlgorithm::kMd5, data));
}

std::string CalulateSHA2StringFromData(Digest& data) {
  return hexLower(data.finish());
}

std::string CalulateSHA2StringFromData(std::string_view data) {
  return hexLower(digestOf(DigestAlgorithm::kSha256, data));
}

}  // namespace tovrek
