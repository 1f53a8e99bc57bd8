#include "batch/StateFolder.h"

#include <array>

#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "inspect/model.h"

namespace tovrek::batch {
namespace {

constexpr uint32_t kResultMode = 0644;
constexpr uint64_t kLargestResult = 1 << 20;

}  // namespace

bool StateFolder::make(ErrorText* error) {
  return createDirectories(joinPath(path_, "rows"), error);
}

bool StateFolder::isThere() const {
  return isDirectory(joinPath(path_, "rows"));
}

std::string StateFolder::folderOf(const Job& job) const {
  return joinPath(joinPath(path_, "rows"), job.key);
}
std::string StateFolder::outputOf(const Job& job) const {
  return joinPath(folderOf(job), "output.txt");
}
std::string StateFolder::logOf(const Job& job) const {
  return joinPath(folderOf(job), "Orvane.log");
}
std::string StateFolder::resultPath(const Job& job) const {
  return joinPath(folderOf(job), "result.json");
}

std::optional<JobResult> StateFolder::result(const Job& job) const {
  return readResult(resultPath(job));
}

bool StateFolder::write(const Job& job, const JobResult& result, ErrorText* error) const {
  const std::string text = resultText(job, result);
  const std::array<std::string_view, 1> parts = {text};
  return writeFileAtomically(resultPath(job), parts, kResultMode, error);
}

bool StateFolder::removeResult(const Job& job, ErrorText* error) const {
  return !itemExistsNoFollow(resultPath(job)) || removeItem(resultPath(job), error);
}

std::optional<JobResult> readResult(const std::string& path) {
  const auto status = statusNoFollow(path);
  if (!status || status->kind != ItemKind::kFile || status->size > kLargestResult) {
    return std::nullopt;
  }
  std::string text;
  return readFile(path, &text) ? parseResult(text) : std::nullopt;
}

bool outputsAreThere(const Job& job, const JobResult& result) {
  const auto outputs = job.paths(ColumnKind::kOutput);
  if (outputs.size() != result.sizes.size()) return false;
  for (size_t i = 0; i < outputs.size(); ++i) {
    const auto status = statusOf(outputs[i]);
    if (!status || status->kind != ItemKind::kFile || status->size != result.sizes[i]) return false;
  }
  return true;
}

}  // namespace tovrek::batch
