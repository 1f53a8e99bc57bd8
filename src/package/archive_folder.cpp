#include "package/archive_folder.h"

#include <fmt/format.h>

#include "host/Streams.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

// The path as unzip must be given it: a leading "-" would be read as an option, and in the last
// component unzip takes "*", "?" and "[" for a pattern that may match other files first.
std::string archiveArgument(const std::string& path) {
  const std::string argument = path.starts_with("-") ? "./" + path : path;
  const size_t slash = argument.rfind('/');
  const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  if (argument.find_first_of("*?[", nameStart) == std::string::npos) return argument;
  std::string result = argument.substr(0, nameStart);
  for (const char c : argument.substr(nameStart)) {
    if (c == '*' || c == '?' || c == '[') {
      result.append("[").append(1, c).append("]");
    } else {
      if (c == '\\') result += c;
      result += c;
    }
  }
  return result;
}

}  // namespace

bool isFolderGiven(const TemporaryDirectory* folder, ErrorText* error) {
  if (error != nullptr) error->clear();
  if (folder == nullptr) systemLog("ERROR: No temp dir object passed.");
  return folder != nullptr;
}

Outcome runUnzip(const std::string& archive, const std::string& destination,
                 const WrapperLogger* log, ProgressStage* stage,
                 const std::vector<std::pair<std::string, std::string>>& environment) {
  Command command;
  command.environment = environment;
  command.argv = {"/usr/bin/unzip", "-q", "-d", destination, archiveArgument(archive)};
  command.standardError = StandardError::kCapture;
  const Outcome outcome = runPart(std::move(command), stage);
  printError(outcome.errorOutput);
  const std::string complaint(trimmed(outcome.errorOutput));
  if (log != nullptr && outcome.status != 0 && !complaint.empty()) {
    WrapperLogger written = *log;
    written.setLogDisplayLevel(0);  // it is on the terminal already
    written.logError(complaint, LineBreaks::kKept);
  }
  return outcome;
}

bool isUnzipped(const Outcome& outcome, ErrorText* error) {
  return outcome.status == 0 ||
         fail(error, fmt::format("Unzip command failed. {}", outcome.output), outcome.said());
}

std::optional<std::string> firstEntryWithExtension(const std::string& folder,
                                                   std::string_view extension) {
  const auto names = listDirectory(folder);
  if (!names) return std::nullopt;
  for (const std::string& name : *names) {
    if (pathExtension(name) == extension && !isSymbolicLink(joinPath(folder, name))) return name;
  }
  return std::nullopt;
}

std::optional<std::string> findPayloadApp(const std::string& tempDir, std::string* payloadDir,
                                          ErrorText* error) {
  const std::string folder = joinPath(tempDir, "Payload");
  if (!fileExists(folder) || isSymbolicLink(folder)) {
    fail(error, fmt::format("Payload directory does not exist at {}", tempDir));
    return std::nullopt;
  }
  *payloadDir = folder;
  const auto app = firstEntryWithExtension(folder, "app");
  if (!app) {
    fail(error, fmt::format("Payload directory ({}) can not be found.", folder));
    return std::nullopt;
  }
  return joinPath(folder, *app);
}

}  // namespace tovrek
