#include "batch/failure_text.h"

#include <algorithm>

#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/file_status.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

constexpr std::string_view kSeparator = "\n------------------------------\n";

}  // namespace

std::string reportedText(std::string_view printed) {
  const size_t last = printed.rfind(kSeparator);
  if (last == printed.npos) return "";
  const size_t gap = printed.substr(0, last).rfind("\n\n");
  std::string_view block = printed.substr(gap == printed.npos ? 0 : gap + 2);
  // The same text may follow once more, as a line of the log.
  block = block.substr(0, block.find(kSeparator));
  std::string text = trimmed(block);
  // The name of a stage, of which each has such a line too.
  return text.ends_with("...") ? "" : text;
}

std::string endingText(std::string_view printed) {
  const std::string reported = reportedText(printed);
  if (!reported.empty()) return reported;
  std::string all = trimmed(printed);
  const std::string_view hyphens = kSeparator.substr(1, kSeparator.size() - 2);
  while (all.ends_with(hyphens)) all = trimmed(all.substr(0, all.size() - hyphens.size()));
  return all.substr(all.rfind('\n') + 1);
}

std::string endOfFile(const std::string& path, size_t most) {
  const auto status = statusNoFollow(path);
  MappedFile file;
  if (!status || status->kind != ItemKind::kFile || !file.open(path)) return "";
  const std::string_view text = asText(file.bytes());
  return std::string(text.substr(text.size() - std::min(most, text.size())));
}

}  // namespace tovrek::batch
