#include "programs/otool/Otool.h"

#include <fmt/format.h>

#include "listing/Listing.h"
#include "macho/Image.h"
#include "programs/otool/OtoolOptions.h"
#include "programs/otool/header_listing.h"
#include "programs/otool/library_listing.h"
#include "programs/otool/load_command_listing.h"
#include "programs/otool/objc_listing.h"

namespace tovrek::otool {
namespace {

using macho::ObjectFile;
using macho::Slice;

constexpr std::string_view kUsage =
    "Usage: otool [-arch name] [-fhlLDovVX] file ...\n"
    "    -f  universal header     -h  Mach-O header     -l  load commands\n"
    "    -L  libraries used       -D  a library's own name\n"
    "    -o  Objective-C metadata\n"
    "    -v  names in place of numbers (-V too)\n"
    "    -X  no lines with the names of files\n"
    "    -arch NAME  only this slice; may be given several times\n";

class Lister : public listing::Listing {
 public:
  Lister(const OtoolOptions& options, const Streams& streams)
      : Listing("otool", options, streams), options_(options) {}

 private:
  void listOther(const ObjectFile& file) override {
    output_.print("{}: is not an object file\n", file.path());
  }
  void beginFile(const ObjectFile& file) override {
    if (options_.universalHeaders) otool::listUniversalHeader(file, options_.verbose, &output_);
  }
  void listSlice(const ObjectFile& file, const Slice& slice) override;
  template <class P>
  void listImage(const macho::Image<P>& image);

  const OtoolOptions& options_;
};

void Lister::listSlice(const ObjectFile& file, const Slice& slice) {
  const std::string title = file.kind() == ObjectFile::Kind::kThin
                                ? file.path()
                                : fmt::format("{} (architecture {})", file.path(), slice.archName);
  const bool more = options_.header || options_.loadCommands || options_.libraries ||
                    options_.libraryId || options_.objectiveC;
  std::string problem = slice.problem;
  if (more) {
    if (!options_.noLeadingLines) output_.print("{}:\n", title);
    const bool isImage = macho::visitImage(slice.bytes, [&](const auto& image) {
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
void Lister::listImage(const macho::Image<P>& image) {
  if (image.bytes.size() < sizeof(image.header)) return;
  if (options_.header) otool::listHeader(image, options_.verbose, &output_);
  if (options_.loadCommands) otool::listLoadCommands(image, options_.verbose, &output_);
  if (options_.libraryId) otool::listLibraryId(image, &output_);
  if (options_.libraries) otool::listLibraries(image, &output_);
  if (options_.objectiveC && !otool::listObjectiveC(image, &output_)) {
    // No failure: the original does not look at the sense of what it lists here.
    warn("warning: otool: damaged Objective-C metadata, not all of it is shown\n");
  }
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  return listing::runListing<OtoolOptions, Lister>("otool", kUsage, arguments, streams);
}

}  // namespace tovrek::otool
