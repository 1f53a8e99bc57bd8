#include "package/package_key.h"

#include "formats/Digest.h"
#include "host/BlockStream.h"
#include "host/StdioFile.h"
#include "host/clock.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {
namespace {

// Nothing of a file that cannot be read: the key differs anyway.
void appendContents(const std::string& path, BlockStream& data) {
  readInPieces(
      path, [&data] { return data.room(); }, [&data](size_t size) { data.took(size); });
}

}  // namespace

std::string GenerateUUID() {
  return uniqueString();
}

std::optional<std::string> GeneratePrivateKey(const std::string& bundlePath,
                                              const WrapperLogger& logger) {
  const std::string appName = deletingPathExtension(lastPathComponent(bundlePath));
  const std::string executable = joinPath(bundlePath, appName);
  logger.logBasic(" the application name is " + appName);
  logger.logBasic(" the application full path is " + executable);

  Digest data(DigestAlgorithm::kSha256);
  {
    BlockStream contents([&data](std::string_view block) { data.update(block); });
    appendContents(joinPath(bundlePath, "Info.plist"), contents);
    appendContents(executable, contents);
  }
  data.update(uniqueString());
  const std::optional<std::string> address = getMacAddress(nullptr, logger);
  if (!address) {
    logger.logError("Could not get mac address");
    return std::nullopt;
  }
  data.update(*address);
  data.update(localTime("%I-%M:%S", currentTime()));
  return hexLower(data.finish());
}

std::optional<std::string> getMacAddress(ErrorText* error, const WrapperLogger& logger) {
  ErrorText failure;
  const std::optional<std::string> address = macAddress(&failure);
  if (address) {
    logger.logBasic("Mac Address: " + *address);
  } else {
    logger.logError("Error: " + failure.text());
    fail(error, failure.text());
  }
  return address;
}

}  // namespace tovrek
