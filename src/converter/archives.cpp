#include "converter/archives.h"

#include <fmt/format.h>

#include <algorithm>

#include "converter/common.h"
#include "converter/steps.h"
#include "host/delivery.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "package/archive_folder.h"
#include "tools/XcrunHelper.h"
#include "tools/tool_run.h"

namespace tovrek::converter {
namespace {

constexpr char kZip[] = "/usr/bin/zip";

// zip takes a name with a hyphen in front for options, and some of those start programs.
std::string asOperand(const std::string& name) {
  return name.starts_with('-') ? "./" + name : name;
}

// Most of the app is as it was in the input. Our own zip takes the packed form of files that have
// not changed from the archive named by this variable; others do not know it.
std::vector<std::pair<std::string, std::string>> packedSource(const WrapperLogger& log,
                                                              const std::string& path) {
  const auto absolute = realPath(path);  // zip runs in another folder
  if (!absolute) {
    if (isThere(path).value_or(true)) {
      log.logWarning("The app is packed anew, as its archive cannot be found: " + path);
    }
    return {};
  }
  return {{"TOVREK_PACKED_SOURCE", *absolute}};
}

// The files of a store's that go beside the app.
bool findStoreFiles(const std::string& folder, std::vector<std::string>* found, ErrorText* error) {
  const auto names = listDirectory(folder, error);
  if (!names) return false;
  for (const char* name : {"iTunesArtwork", "iTunesMetadata.plist"}) {
    // One that cannot be looked at is left for zip to complain of.
    const bool isListed = std::ranges::find(*names, name) != names->end();
    if (isListed && !isDirectory(joinPath(folder, name))) found->emplace_back(name);
  }
  return true;
}

const std::string& saidByZip(const Outcome& outcome) {
  return outcome.output.empty() ? outcome.said() : outcome.output;
}

// As runTool(), and what zip says when it fails, on standard output, is an error in the log: which
// file, and why.
Outcome runZip(const Run& run, const std::vector<std::string>& argv,
               const std::string& workingDirectory,
               const std::vector<std::pair<std::string, std::string>>& environment = {}) {
  const WrapperLogger& log = run.log();
  Command command;
  command.argv = argv;
  command.workingDirectory = workingDirectory;
  command.environment = environment;
  ProgressStage stage(run.context.showsProgress, "Packing");
  const Outcome outcome = runPart(std::move(command), &stage);
  if (!outcome.notStarted.empty()) {
    log.logError(fmt::format("zip: {}", outcome.notStarted));
    return outcome;
  }
  if (outcome.status == 0) {
    log.logDetailed(outcome.output, LineBreaks::kKept);
  } else {
    log.logError(outcome.output, LineBreaks::kKept);
  }
  return outcome;
}

// `unpackedFrom` is the archive that the app came from.
bool zipApp(const Run& run, const char* options, const std::string& ipaName,
            const std::string& unpackedFrom, const std::string& sourceDir,
            const std::string& targetDir, ErrorText* error) {
  const std::string archive = standardizePath(joinPath(sourceDir, ipaName));
  std::string source = unpackedFrom;
  // An item of that name came with the input; zip would add to it, or write through a link. It
  // goes, or moves out of the way when the app was unpacked from it.
  if (archive == standardizePath(unpackedFrom) && isPlainFile(archive)) {
    source = joinPath(sourceDir, uniqueString());
    if (!moveItem(archive, source)) source.clear();
  }
  if (itemExistsNoFollow(archive)) removeItem(archive);

  std::vector<std::string> command = {kZip, options, asOperand(ipaName), "Payload"};
  ErrorText reason;
  if (!findStoreFiles(sourceDir, &command, &reason)) {
    return fail(error, fmt::format("{}: {}", sourceDir, reason.text()));
  }
  const Outcome zipped = runZip(run, command, sourceDir, packedSource(run.log(), source));
  if (source != unpackedFrom && !source.empty()) removeItem(source);

  const std::string target = standardizePath(joinPath(targetDir, ipaName));
  if (zipped.status != 0 || !isPlainFile(archive)) {
    failMissingFile(error, target);
    if (error != nullptr) error->setCause(saidByZip(zipped));
    return false;
  }
  if (!deliverOrFail(archive, target, Source::kSpent, error)) return false;
  run.log().logBasic("Generated output ipa file at: " + target);
  return true;
}

}  // namespace

bool ZipToIpa(const Run& run, const std::string& ipaName, const std::string& sourceDir,
              const std::string& targetDir, ErrorText* error) {
  return zipApp(run, "-qry", ipaName, run.request.inputFile.value_or(""), sourceDir, targetDir,
                error);
}

bool ZipToIpaFromWex(const Run& run, const std::string& sourceDir, const UnzippedCma& package,
                     const std::string& packageDir, ErrorText* error) {
  const std::string& old = run.oldIpa.empty() ? package.ipaPath() : run.oldIpa;
  const bool isDone = zipApp(run, "-qr", package.ipaName(), old, sourceDir, packageDir, error);
  if (!run.oldIpa.empty()) removeItem(run.oldIpa);
  return isDone;
}

bool ZiptoPackage(const Run& run, const std::string& packageDir, ErrorText* error) {
  const std::string name = uniqueString() + ".zip";
  const std::string archive = standardizePath(joinPath(packageDir, name));
  const Outcome zipped = runZip(run, {kZip, "-qr", name, "."}, packageDir, run.archiveEnvironment);
  if (zipped.status != 0) return failWithStatus(error, "zip", zipped.status, saidByZip(zipped));
  if (!isPlainFile(archive)) {
    return fail(error, fmt::format("Failed to generate this file: {}", archive));
  }
  run.log().logDetailed("Generated output ipa file at: " + archive);

  const std::string output = run.request.outputFile.value_or("");
  if (isPlainFile(output)) {
    run.log().logWarning("WARNING! The target output file already exists. Deleting original file.");
  }
  ErrorText failure;
  if (deliverOrFail(archive, output, Source::kSpent, &failure)) return true;
  // A folder or device of that name is left alone.
  const auto standing = statusOf(output);
  const bool isOther = standing && standing->kind != ItemKind::kFile;
  return isOther || fail(error, failure.text());
}

bool nameIpa(Run& run, ErrorText* /*error*/) {
  run.ipaFolder = run.packageDir();
  run.outputIPAFileName = lastPathComponent(run.request.inputFile.value_or(""));
  return true;
}

bool nameSdkIpa(Run& run, ErrorText* error) {
  nameIpa(run, error);
  const auto& output = run.request.outputFile;
  if (!run.request.packageApp && output) {
    run.ipaFolder = containingFolder(*output);
    run.outputIPAFileName = lastPathComponent(*output);
  }
  run.outputIPAFileName = deletingPathExtension(run.outputIPAFileName) + "_SDK.ipa";
  return true;
}

bool writeIpa(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Generating ipa file...");
  return ZipToIpa(run, run.outputIPAFileName, run.scratch(), run.ipaFolder, error);
}

bool writeSdkIpa(Run& run, ErrorText* error) {
  if (pathExtension(run.request.inputFile.value_or("")) != "app") return writeIpa(run, error);
  run.progressor.SetProgress("Generating ipa file...");
  XcrunHelper packager;
  packager.appBundlePath = run.request.inputFile;
  packager.codeSignCert = run.request.certificate;
  packager.embeddedProfilePath = run.request.provisionProfile;
  packager.outPackagePath = run.targetIpaPath();
  return packager.StartXCRun(run.log(), error);
}

bool writeIpaOfPackage(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Generating ipa file...");
  return ZipToIpaFromWex(run, run.scratch(), *run.package, run.packageDir(), error);
}

bool flushApp(Run& run, ErrorText* error) {
  return flushTree(run.appPath, error);
}

bool writePackage(Run& run, ErrorText* error) {
  if (!run.request.outputFile) return true;
  run.progressor.SetProgress("Generating package file...");
  const std::string manifest = joinPath(run.packageDir(), "manifest.xml");
  // Packages of other makers may name theirs differently.
  const bool hasOther = run.package && firstEntryWithExtension(run.packageDir(), "xml");
  if (!isPlainFile(manifest) && !hasOther) return failMissingFile(error, manifest);
  return ZiptoPackage(run, run.packageDir(), error);
}

}  // namespace tovrek::converter
