#include "programs/xcrun/package_application.h"

#include <fmt/format.h>

#include "host/delivery.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/signals.h"
#include "launch/programs.h"

namespace tovrek::xcrun {

namespace {

// A folder of this run alone, gone with the object.
class ScratchFolder {
 public:
  explicit ScratchFolder(std::string path) : path_(std::move(path)), guard_(path_) {}
  ~ScratchFolder() { remove(nullptr); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  bool create(ErrorText* error) const {
    return createPrivateDirectory(path_) || fail(error, "cannot make a temporary folder");
  }
  bool remove(ErrorText* error) const {
    return !itemExistsNoFollow(path_) || removeItem(path_, error);
  }
  std::string file(const std::string& name) const { return joinPath(path_, name); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  RemovedOnSignal guard_;
};

// `output` shows what the program printed; none where nobody asked for it.
bool runStep(Command command, const Streams* output, ErrorText* error) {
  command.standardError = StandardError::kMergeIntoOutput;
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(command, &outcome, &reason)) {
    return fail(error, fmt::format("{}: {}", command.argv.front(), reason.text()));
  }
  if (output != nullptr) output->out(outcome.output);
  if (outcome.status == 0) return true;
  return fail(error, fmt::format("{} failed with status {}: {}", command.argv.front(),
                                 outcome.status, trimmed(outcome.output)));
}

bool embedProfile(const std::string& profile, const std::string& app, ErrorText* error) {
  std::string contents;
  ErrorText reason;
  if (readFile(profile, &contents, &reason) &&
      writeFileAtomically(joinPath(app, "embedded.mobileprovision"), contents, &reason)) {
    return true;
  }
  return fail(error, fmt::format("cannot embed profile '{}': {}", profile, reason.text()));
}

bool signApp(const std::string& identity, const std::string& app, const Streams* output,
             ErrorText* error) {
  const auto codesign = launch::findCompanion("codesign");
  if (!codesign) return fail(error, "codesign is not installed");
  Command command;
  command.argv = {*codesign, "--force", "--preserve-metadata=identifier,entitlements",
                  "--sign",  identity,  app};
  return runStep(command, output, error);
}

bool deliver(const std::string& made, const std::string& target, ErrorText* error) {
  ErrorText reason;
  return deliverFile(made, target, Source::kSpent, &reason) ||
         fail(error, fmt::format("cannot write '{}': {}", target, reason.text()));
}

}  // namespace

std::optional<PackageRequest> parsePackageRequest(const std::vector<std::string>& arguments,
                                                  ErrorText* error) {
  PackageRequest request;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "-v" || word == "--verbose" || word == "-verbose") {
      request.verbose = true;
      continue;
    }
    if (!word.starts_with("-")) {
      if (!request.app.empty()) {
        fail(error, fmt::format("more than one application given: '{}'", word));
        return std::nullopt;
      }
      request.app = word;
      continue;
    }
    if (i + 1 == arguments.size()) {
      fail(error, fmt::format("unknown option, or one without its value: '{}'", word));
      return std::nullopt;
    }
    const std::string& value = arguments[++i];
    if (word == "-o" || word == "--output" || word == "-output") {
      request.output = value;
    } else if (word == "-s" || word == "--sign" || word == "-sign") {
      request.sign = value;
    } else if (word == "-e" || word == "--embed" || word == "-embed") {
      request.profile = value;
    } else {
      fail(error, fmt::format("unknown option '{}'", word));
      return std::nullopt;
    }
  }
  if (request.app.empty()) {
    fail(error, "no application given");
    return std::nullopt;
  }
  if (request.output.empty()) {
    request.output = deletingPathExtension(standardizePath(request.app)) + ".ipa";
  }
  return request;
}

bool packageApplication(const PackageRequest& request, const Streams& streams, ErrorText* error) {
  const Streams* output = request.verbose ? &streams : nullptr;
  if (!isDirectory(request.app) || !isPlainFile(joinPath(request.app, "Info.plist"))) {
    return fail(
        error, fmt::format("the application '{}' does not exist or is no app bundle", request.app));
  }
  const auto temporary = systemTemporaryFolder(error);
  if (!temporary) return false;
  const ScratchFolder scratch(joinPath(*temporary, "PackageApplication-" + uniqueString()));
  const std::string app =
      joinPath(scratch.file("Payload"), lastPathComponent(standardizePath(request.app)));
  if (output != nullptr) output->out(fmt::format("Packaging application: '{}'\n", request.app));
  if (!scratch.create(error) || !createDirectories(scratch.file("Payload"), error) ||
      !copyItem(request.app, app, error)) {
    return false;
  }
  if (request.profile && !embedProfile(*request.profile, app, error)) return false;
  if (request.sign && !signApp(*request.sign, app, output, error)) return false;

  const std::string made = scratch.file("application.ipa");
  Command zip;
  // The system's own leaves out what it cannot look at.
  zip.argv = {launch::findCompanion("zip").value_or("/usr/bin/zip"), "-qry", made, "Payload"};
  zip.workingDirectory = scratch.path();
  if (!runStep(zip, output, error) || !deliver(made, request.output, error)) return false;
  ErrorText reason;
  if (!scratch.remove(&reason)) {
    streams.error(fmt::format("warning: {} stays: {}\n", scratch.path(), reason.text()));
  }
  if (output != nullptr) output->out(fmt::format("Results at '{}'\n", request.output));
  return true;
}

}  // namespace tovrek::xcrun
