#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "companions/keychain/locations.h"
#include "companions/security/Options.h"
#include "companions/security/cms_content.h"
#include "companions/security/commands.h"
#include "companions/security/status.h"
#include "host/file_io.h"
#include "host/files.h"
#include "log/SystemLog.h"

namespace tovrek::security {

namespace {

// A device or pipe is written to; only a file can be replaced as a whole.
bool writeOutput(const std::string& path, std::string_view content, ErrorText* error) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode)) {
    return writeFileAtomically(path, content, error);
  }
  const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  return (fd.valid() && writeAll(fd.get(), content)) || failWithErrno(error);
}

int unreadable(std::string_view path, const ErrorText& error) {
  return reportFailure(fmt::format("unable to open \"{}\" for reading: {}", path, error.text()));
}

}  // namespace

int cms(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "Di:o:k:u:nc:");
  if (!options || !options->has('D') || !options->operands().empty()) return kUsage;

  ErrorText error;
  if (const auto named = options->value('k'); named && !keychain::openKeychain(*named, &error)) {
    return reportFailure(fmt::format("unable to open keychain \"{}\": {}", *named, error.text()));
  }
  const std::string input = options->value('i').value_or("/dev/stdin");
  std::string message;
  if (!readFile(input, &message, &error)) return unreadable(input, error);

  auto content = cmsContent(message, &error);
  if (!content) {
    printError(fmt::format("security: failed to decode message: {}\n", error.text()));
    return reportFailure("problem decoding");
  }
  if (const auto detached = options->value('c'); detached && isDetached(message)) {
    if (!readFile(*detached, &*content, &error)) return unreadable(*detached, error);
  }

  const auto output = options->value('o');
  if (!output) {
    printOut(*content);
    return kSuccess;
  }
  if (writeOutput(*output, *content, &error)) return kSuccess;
  return reportFailure(fmt::format("unable to open \"{}\" for writing: {}", *output, error.text()));
}

}  // namespace tovrek::security
