// Checksums of a bundle, the package key and unique values.
#include <fmt/format.h>

#include <set>

#include "host/BlockStream.h"
#include "host/StdioFile.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "log/module_loggers.h"
#include "package/HelperMethods.h"

namespace tovrek {
namespace {

bool appendFile(const std::string& path, BlockStream& data) {
  return readInPieces(
      path, [&data] { return data.room(); }, [&data](size_t size) { data.took(size); });
}

// A link that leads out of the folder would make the checksum depend on the host.
bool leadsOutside(const std::string& link, const std::string& directory) {
  const std::optional<std::string> target = realPath(link);
  const std::optional<std::string> root = realPath(directory);
  return target && root && !target->starts_with(*root + "/");
}

class ContentWalk {
 public:
  explicit ContentWalk(Digest& data)
      : data_([&data](std::string_view block) { data.update(block); }) {}

  void walk(const std::string& directory) {
    // Names relative to the working directory could lead back to where we are.
    if (!open_.insert(directory).second) return;
    walkDirectory(directory, [&](const WalkedItem& item) {
      visit(directory, item);
      return true;
    });
    open_.erase(directory);
  }

 private:
  // The deep walk reaches the files of every folder by itself. A folder's own turn takes its
  // relative path, which normally names nothing in the working directory; servers know checksums
  // made this way, so it stays.
  void visit(const std::string& directory, const WalkedItem& item) {
    const std::string path = directory + "/" + item.relativePath;
    if (item.kind == ItemKind::kDirectory || (item.kind == ItemKind::kLink && isDirectory(path))) {
      walk(item.relativePath);
      return;
    }
    // The settings file holds the checksum itself.
    if (containsIgnoringCase(path, "Orvane.plist")) return;
    const bool readable = item.kind != ItemKind::kLink || !leadsOutside(path, directory);
    if (!readable || !appendFile(path, data_)) {
      Global_ManifestLib_logger().logError(fmt::format("Error reading file {}", item.relativePath));
    }
  }

  BlockStream data_;
  std::set<std::string> open_;
};

}  // namespace

void HelperMethods::LookForRecursiveFileWith(const std::string& directory, Digest& data) {
  ContentWalk(data).walk(directory);
}

std::string HelperMethods::CalulateMD5StringFromData(std::string_view data) {
  return hexUpper(digestOf(DigestAlgorithm::kMd5, data));
}

std::string HelperMethods::CalulateSHA2StringFromData(Digest& data) {
  return hexLower(data.finish());
}

std::string HelperMethods::CalulateSHA2StringFromData(std::string_view data) {
  return hexLower(digestOf(DigestAlgorithm::kSha256, data));
}

bool HelperMethods::GenerateChecksumPlistFile(const std::string& checksum, const std::string& key,
                                              const std::string& path) {
  PlistDictionary dictionary;
  dictionary.set(key, checksum);
  return writePlist(path, dictionary, PlistFormat::kXml);
}

std::string HelperMethods::GenerateUUID() {
  return uniqueString();
}

std::optional<std::string> HelperMethods::GeneratePrivateKey(const std::string& bundlePath) {
  const WrapperLogger& logger = Global_ManifestLib_logger();
  const std::string appName = deletingPathExtension(lastPathComponent(bundlePath));
  const std::string executable = joinPath(bundlePath, appName);
  logger.logBasic(" the application name is " + appName);
  logger.logBasic(" the application full path is " + executable);

  Digest data(DigestAlgorithm::kSha256);
  {
    BlockStream contents([&data](std::string_view block) { data.update(block); });
    appendFile(joinPath(bundlePath, "Info.plist"), contents);
    appendFile(executable, contents);
  }
  data.update(uniqueString());
  const std::optional<std::string> address = getMacAddress(nullptr);
  if (!address) {
    logger.logError("Could not get mac address");
    return std::nullopt;
  }
  data.update(*address);
  data.update(localTime("%I-%M:%S", currentTime()));
  return CalulateSHA2StringFromData(data);
}

std::optional<std::string> HelperMethods::getMacAddress(ErrorText* error) {
  ErrorText failure;
  const std::optional<std::string> address = macAddress(&failure);
  if (address) {
    Global_ManifestLib_logger().logBasic("Mac Address: " + *address);
  } else {
    Global_ManifestLib_logger().logError("Error: " + failure.text());
    fail(error, failure.text());
  }
  return address;
}

}  // namespace tovrek
