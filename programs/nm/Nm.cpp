#include "programs/nm/Nm.h"

#include <fmt/format.h>

#include "listing/Listing.h"
#include "macho/Image.h"
#include "programs/nm/NmOptions.h"
#include "programs/nm/symbol_listing.h"

namespace tovrek::nm {
namespace {

using macho::ObjectFile;
using macho::Slice;

constexpr std::string_view kUsage =
    "Usage: nm [-arch name] [-aAgjmnopruUv] [file ...]\n"
    "    -j  names only           -m  types in words\n"
    "    -u  undefined only       -U  defined only          -g  external only\n"
    "    -a  debugger's symbols too\n"
    "    -n  sorted by address (-v too)   -p  not sorted   -r  the other way round\n"
    "    -A  the file's name on each line (-o too)\n"
    "    -arch NAME  only this slice; may be given several times\n";

class Lister : public listing::Listing {
 public:
  Lister(const NmOptions& options, const Streams& streams)
      : Listing("nm", options, streams), options_(options) {}

 private:
  void listOther(const ObjectFile& file) override {
    complain(fmt::format("{}: The file was not recognized as a valid object file", file.path()));
    if (file.bytes().cString(0).starts_with("\177ELF")) {
      complain("this nm reads files of Apple's systems; that of the host is another one in PATH");
    }
  }
  void listSlice(const ObjectFile& file, const Slice& slice) override;

  const NmOptions& options_;
};

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
  const bool isImage = macho::visitImage(slice.bytes, [&](const auto& image) {
    const nm::Listed listed = nm::listSymbols(image, options_, prefix, &output_);
    if (listed == nm::Listed::kNone) {
      warn(fmt::format("{} no symbols\n", title));
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

int run(const Arguments& arguments, const Streams& streams) {
  return listing::runListing<NmOptions, Lister>("nm", kUsage, arguments, streams);
}

}  // namespace tovrek::nm
