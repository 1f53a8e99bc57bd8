#include "listing/Listing.h"

#include <fmt/format.h>

#include <vector>

#include "listing/meant_file.h"

namespace tovrek::listing {

int Listing::run() {
  for (const std::string& path : options_.files) list(path);
  output_.flush();
  return failed_ ? 1 : 0;
}

void Listing::list(const std::string& path) {
  macho::ObjectFile file;
  ErrorText error;
  if (!file.open(meantFile(path), &error)) {
    return complain(fmt::format("can't open file: {} ({})", path, error.text()));
  }
  if (file.kind() == macho::ObjectFile::Kind::kOther) return listOther(file);
  beginFile(file);
  if (!file.problem().empty()) {
    complain(fmt::format("{}: truncated or malformed fat file ({})", file.path(), file.problem()));
  }
  std::vector<const macho::Slice*> chosen;
  std::string missing;
  if (!macho::chooseSlices(file, options_.archs, &chosen, &missing)) {
    return complain(
        fmt::format("file: {} does not contain architecture: {}", file.path(), missing));
  }
  for (const macho::Slice* slice : chosen) listSlice(file, *slice);
}

void Listing::complain(const std::string& text) {
  warn(fmt::format("error: {}: {}\n", program_, text));
  failed_ = true;
}

void Listing::warn(const std::string& text) {
  output_.flush();
  streams_.error(text);
}

int refuseUsage(std::string_view program, const std::string& reason, std::string_view usage,
                const Streams& streams) {
  streams.error(fmt::format("error: {}: {}\n{}", program, reason, usage));
  return 1;
}

}  // namespace tovrek::listing
