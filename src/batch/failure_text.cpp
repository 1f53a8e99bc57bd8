#include "batch/failure_text.h"

#include <algorithm>

#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/file_status.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

constexpr std::string_view kSeparator = "\n------------------------------\n";

std::string_view lastBlock(std::string_view text) {
  const size_t start = text.rfind("\n\n");
  return start == text.npos ? text : text.substr(start + 2);
}

}  // namespace

std::string reportedText(std::string_view printed) {
  const size_t line = printed.rfind(kSeparator);
  return line == printed.npos ? "" : trimmed(lastBlock(printed.substr(0, line)));
}

std::string endingText(std::string_view printed) {
  const std::string reported = reportedText(printed);
  if (!reported.empty()) return reported;
  const std::string all = trimmed(printed);
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
