#include "companions/otool/Otool.h"

#include <fmt/format.h>

#include "companions/objects/Image.h"
#include "companions/objects/ObjectFile.h"
#include "companions/objects/Output.h"
#include "companions/objects/meant_file.h"
#include "companions/otool/OtoolOptions.h"
#include "companions/otool/header_listing.h"
#include "companions/otool/library_listing.h"
#include "companions/otool/load_command_listing.h"
#include "companions/otool/objc_listing.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

using objects::ObjectFile;
using objects::Output;
using objects::Slice;

constexpr std::string_view kUsage =
    "Usage: otool [-arch name] [-fhlLDovVX] file ...\n"
    "    -f  universal header     -h  Mach-O header     -l  load commands\n"
    "    -L  libraries used       -D  a library's own name\n"
    "    -o  Objective-C metadata\n"
    "    -v  names in place of numbers (-V too)\n"
    "    -X  no lines with the names of files\n"
    "    -arch NAME  only this slice; may be given several times\n";

class Lister {
 public:
  explicit Lister(const OtoolOptions& options) : options_(options) {}

  void list(const std::string& path);
  bool failed() const { return failed_; }

 private:
  void listSlice(const std::string& title, const Slice& slice);
  template <class P>
  void listImage(const objects::Image<P>& image);
  void complain(const std::string& text) {
    output_.flush();
    printError(fmt::format("error: otool: {}\n", text));
    failed_ = true;
  }

  const OtoolOptions& options_;
  Output output_;
  bool failed_ = false;
};

void Lister::list(const std::string& path) {
  ObjectFile file;
  ErrorText error;
  if (!file.open(objects::meantFile(path), &error)) {
    return complain(fmt::format("can't open file: {} ({})", path, error.text()));
  }
  if (file.kind() == ObjectFile::Kind::kOther) {
    return output_.print("{}: is not an object file\n", file.path());
  }
  if (options_.universalHeaders) otool::listUniversalHeader(file, options_.verbose, &output_);
  if (!file.problem().empty()) {
    complain(fmt::format("{}: truncated or malformed fat file ({})", file.path(), file.problem()));
  }
  std::vector<const Slice*> chosen;
  std::string missing;
  if (!objects::chooseSlices(file, options_.archs, &chosen, &missing)) {
    return complain(
        fmt::format("file: {} does not contain architecture: {}", file.path(), missing));
  }
  for (const Slice* slice : chosen) {
    listSlice(file.kind() == ObjectFile::Kind::kThin
                  ? file.path()
                  : fmt::format("{} (architecture {})", file.path(), slice->archName),
              *slice);
  }
}

void Lister::listSlice(const std::string& title, const Slice& slice) {
  const bool more = options_.header || options_.loadCommands || options_.libraries ||
                    options_.libraryId || options_.objectiveC;
  std::string problem = slice.problem;
  if (more) {
    if (!options_.noLeadingLines) output_.print("{}:\n", title);
    const bool isImage = objects::visitImage(slice.bytes, [&](const auto& image) {
      listImage(image);
      if (problem.empty()) problem = image.problem;
    });
    if (!isImage && problem.empty()) problem = "not a thin Mach-O image";
  }
  if (!problem.empty()) {
    complain(fmt::format("{}: truncated or malformed object ({})", title, problem));
  }
}

template <class P>
void Lister::listImage(const objects::Image<P>& image) {
  if (image.bytes.size() < sizeof(image.header)) return;
  if (options_.header) otool::listHeader(image, options_.verbose, &output_);
  if (options_.loadCommands) otool::listLoadCommands(image, options_.verbose, &output_);
  if (options_.libraryId) otool::listLibraryId(image, &output_);
  if (options_.libraries) otool::listLibraries(image, &output_);
  if (options_.objectiveC && !otool::listObjectiveC(image, &output_)) {
    // No failure: the original does not look at the sense of what it lists here.
    output_.flush();
    printError("warning: otool: damaged Objective-C metadata, not all of it is shown\n");
  }
}

}  // namespace

int runOtool(const std::vector<std::string>& arguments) {
  if (arguments == std::vector<std::string>{"--help"}) {
    printOut(kUsage);
    return 0;
  }
  OtoolOptions options;
  ErrorText error;
  if (!options.parse(arguments, &error)) {
    printError(fmt::format("error: otool: {}\n{}", error.text(), kUsage));
    return 1;
  }
  Lister lister(options);
  for (const std::string& path : options.files) lister.list(path);
  return lister.failed() ? 1 : 0;
}

}  // namespace tovrek
