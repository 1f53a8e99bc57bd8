// The two archives: the signed app and the package around it.
#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "package/UnzippedCma.h"
#include "tools/tool_run.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr char kZip[] = "/usr/bin/zip";

// zip takes a name with a hyphen in front for options, and some of those start programs.
std::string asOperand(const std::string& name) {
  return name.starts_with('-') ? "./" + name : name;
}

// Most of the app is as it was in the input. Our own zip takes the packed form of files that have
// not changed from the archive named by this variable; others do not know it.
std::vector<std::pair<std::string, std::string>> packedSource(const std::string& path) {
  const auto absolute = realPath(path);  // zip runs in another folder
  if (!absolute) return {};
  return {{"TOVREK_PACKED_SOURCE", *absolute}};
}

// `unpackedFrom` is the archive that the app came from.
bool zipApp(const char* options, const std::string& ipaName, const std::string& unpackedFrom,
            const std::string& sourceDir, const std::string& targetDir, ErrorText* error) {
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
  for (const char* name : {"iTunesArtwork", "iTunesMetadata.plist"}) {
    if (isPlainFile(joinPath(sourceDir, name))) command.push_back(name);
  }
  const int status = runTool(command, sourceDir, packedSource(source));
  if (source != unpackedFrom && !source.empty()) removeItem(source);
  if (status != 0) return true;

  const std::string target = standardizePath(joinPath(targetDir, ipaName));
  if (isPlainFile(target)) removeItem(target);
  if (!handOverOrFail(archive, target, error)) return false;
  logger().logBasic("Generated output ipa file at: " + target);
  return true;
}

}  // namespace

bool AppConverter::ZipToIpa(const std::string& ipaName, const std::string& sourceDir,
                            const std::string& targetDir, ErrorText* error) {
  return zipApp("-qry", ipaName, converterParam_.inputFile.value_or(""), sourceDir, targetDir,
                error);
}

bool AppConverter::ZipToIpaFromWex(const std::string& sourceDir, const UnzippedCma& package,
                                   const std::string& packageDir, ErrorText* error) {
  return zipApp("-qr", package.ipaName(), package.ipaPath(), sourceDir, packageDir, error);
}

bool AppConverter::ZiptoPackage(const std::string& packageDir, ErrorText* error) {
  const std::string name = uniqueString() + ".zip";
  const std::string archive = standardizePath(joinPath(packageDir, name));
  const int status = runTool({kZip, "-qr", name, "."}, packageDir);
  if (status != 0) return failWithStatus(error, "zip", status);
  if (!isPlainFile(archive)) {
    return fail(error, fmt::format("Failed to generate this file: {}", archive));
  }
  logger().logDetailed("Generated output ipa file at: " + archive);

  const std::string output = converterParam_.outputFile.value_or("");
  if (isInput(output)) return replaceInput(archive, output, error);
  if (isPlainFile(output)) {
    removeItem(output);
    logger().logWarning("WARNING! The target output file already exists. Deleting original file.");
  }
  // What counts is that something stands there in the end.
  ErrorText failure;
  handOverOrFail(archive, output, &failure);
  return fileExists(output) || fail(error, failure.text());
}

bool AppConverter::isInput(const std::string& output) const {
  const auto input = realPath(converterParam_.inputFile.value_or(""));
  return isPlainFile(output) && input && realPath(output) == input;
}

bool AppConverter::replaceInput(const std::string& from, const std::string& output,
                                ErrorText* error) {
  const std::string beside = joinPath(containingFolder(output), "." + uniqueString());
  ErrorText reason;
  if (copyItem(from, beside, &reason) && removeItem(output, &reason) &&
      moveItem(beside, output, &reason)) {
    logger().logWarning("WARNING! The output replaces the input file: " + output);
    return true;
  }
  if (fileExists(output)) removeItem(beside);
  return fail(error, fmt::format("Failed to copy file from {} to {}. Error:{}", from, output,
                                 reason.text()));
}

}  // namespace tovrek
