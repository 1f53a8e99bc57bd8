#include "companions/nm/Nm.h"

#include <fmt/format.h>

#include "companions/nm/NmOptions.h"
#include "companions/nm/symbol_listing.h"
#include "companions/objects/Image.h"
#include "companions/objects/ObjectFile.h"
#include "companions/objects/Output.h"
#include "companions/objects/meant_file.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

using objects::ObjectFile;
using objects::Output;
using objects::Slice;

constexpr std::string_view kUsage =
    "Usage: nm [-arch name] [-aAgjmnopruUv] [file ...]\n"
    "    -j  names only           -m  types in words\n"
    "    -u  undefined only       -U  defined only          -g  external only\n"
    "    -a  debugger's symbols too\n"
    "    -n  sorted by address (-v too)   -p  not sorted   -r  the other way round\n"
    "    -A  the file's name on each line (-o too)\n"
    "    -arch NAME  only this slice; may be given several times\n";

class Lister {
 public:
  explicit Lister(const NmOptions& options) : options_(options) {}

  void list(const std::string& path);
  bool failed() const { return failed_; }

 private:
  void listSlice(const ObjectFile& file, const Slice& slice);
  void complain(const std::string& text) {
    output_.flush();
    printError(fmt::format("error: nm: {}\n", text));
    failed_ = true;
  }

  const NmOptions& options_;
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
    return complain(
        fmt::format("{}: The file was not recognized as a valid object file", file.path()));
  }
  if (!file.problem().empty()) {
    complain(fmt::format("{}: truncated or malformed fat file ({})", file.path(), file.problem()));
  }
  std::vector<const Slice*> chosen;
  std::string missing;
  if (!objects::chooseSlices(file, options_.archs, &chosen, &missing)) {
    return complain(
        fmt::format("file: {} does not contain architecture: {}", file.path(), missing));
  }
  for (const Slice* slice : chosen) listSlice(file, *slice);
}

void Lister::listSlice(const ObjectFile& file, const Slice& slice) {
  // One slice that was asked for needs no telling apart.
  const bool showArch = file.kind() == ObjectFile::Kind::kUniversal &&
                        (options_.archs.size() != 1 || options_.archs.front() == "all");
  const std::string arch =
      showArch ? fmt::format("(for architecture {}):", slice.archName) : std::string();
  const std::string title = showArch ? fmt::format("{} {}", file.path(), arch) : file.path() + ":";
  if (!options_.fileOnEachLine && (showArch || options_.files.size() > 1)) {
    output_.print("\n{}\n", title);
  }
  const std::string prefix =
      options_.fileOnEachLine ? fmt::format("{}{}: ", arch, file.path()) : std::string();
  std::string problem = slice.problem;
  const bool isImage = objects::visitImage(slice.bytes, [&](const auto& image) {
    const nm::Listed listed = nm::listSymbols(image, options_, prefix, &output_);
    if (listed == nm::Listed::kNone) {
      output_.flush();
      printError(fmt::format("{} no symbols\n", title));
    }
    if (listed == nm::Listed::kNotAll) problem = "names of symbols repeat without end";
    if (problem.empty()) problem = image.problem;
  });
  if (!isImage && problem.empty()) problem = "not a thin Mach-O image";
  if (!problem.empty()) {
    complain(fmt::format("{} truncated or malformed object ({})", title, problem));
  }
}

}  // namespace

int runNm(const std::vector<std::string>& arguments) {
  if (arguments == std::vector<std::string>{"--help"}) {
    printOut(kUsage);
    return 0;
  }
  NmOptions options;
  ErrorText error;
  if (!options.parse(arguments, &error)) {
    printError(fmt::format("error: nm: {}\n{}", error.text(), kUsage));
    return 1;
  }
  Lister lister(options);
  for (const std::string& path : options.files) lister.list(path);
  return lister.failed() ? 1 : 0;
}

}  // namespace tovrek
