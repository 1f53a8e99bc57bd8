#include "converter/output.h"

#include "converter/common.h"
#include "host/files.h"
#include "host/host_info.h"
#include "log/SystemLog.h"

namespace tovrek::converter {

bool isInput(const Run& run, const std::string& output) {
  const auto input = realPath(run.request.inputFile.value_or(""));
  return isPlainFile(output) && input && realPath(output) == input;
}

bool replaceInput(const Run& run, const std::string& from, const std::string& output,
                  ErrorText* error) {
  const std::string beside = joinPath(containingFolder(output), "." + uniqueString());
  ErrorText reason;
  if (copyItem(from, beside, &reason) && removeItem(output, &reason) &&
      moveItem(beside, output, &reason)) {
    run.log().logWarning("WARNING! The output replaces the input file: " + output);
    return true;
  }
  if (fileExists(output)) removeItem(beside);
  return failToCopy(from, output, reason, error);
}

bool copyOutputBundle(Run& run, ErrorText* error) {
  const auto& output = run.request.outputBundleFile;
  if (!output) return true;
  if (isInput(run, *output)) return replaceInput(run, run.targetIpaPath(), *output, error);
  if (isPlainFile(*output)) {
    removeItem(*output);
    run.log().logWarning(
        "WARNING! The target bundle output file already exists. Deleting original file.");
  }
  return copyOrFail(run.targetIpaPath(), *output, error);
}

bool deliverIpa(Run& run, ErrorText* error) {
  const std::string output = run.request.outputFile.value_or("");
  if (isInput(run, output)) return replaceInput(run, run.targetIpaPath(), output, error);
  ErrorText reason;
  if (isPlainFile(output) && !removeItem(output, &reason)) return failToRemove(reason, error);
  return copyOrFail(run.targetIpaPath(), output, error);
}

}  // namespace tovrek::converter
