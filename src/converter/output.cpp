// What leaves the scratch folder: the steps that write the files which the user asked for. A file
// that stands there, be it the input, is replaced once the new one is whole and on the disk.
#include "converter/common.h"
#include "converter/steps.h"
#include "host/files.h"

namespace tovrek::converter {

bool copyOutputBundle(Run& run, ErrorText* error) {
  const auto& output = run.request.outputBundleFile;
  if (!output) return true;
  if (isPlainFile(*output)) {
    run.log().logWarning(
        "WARNING! The target bundle output file already exists. Deleting original file.");
  }
  return deliverOrFail(run.targetIpaPath(), *output, Source::kKept, error);
}

bool deliverIpa(Run& run, ErrorText* error) {
  const std::string output = run.request.outputFile.value_or("");
  return deliverOrFail(run.targetIpaPath(), output, Source::kKept, error);
}

}  // namespace tovrek::converter
