#include "batch/Parcels.h"

#include <fmt/format.h>

#include <set>

#include "batch/judging.h"
#include "host/delivery.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "inspect/JsonWriter.h"

namespace tovrek::batch {
namespace {

bool isFileOf(const std::string& path, uint64_t size) {
  const auto status = statusNoFollow(path);
  return status && status->kind == ItemKind::kFile && status->size == size;
}

// The only item in a folder; empty where there is none, or several.
std::string onlyItem(const std::string& folder) {
  const auto names = listDirectory(folder);
  return names && names->size() == 1 ? joinPath(folder, names->front()) : "";
}

std::string placeOf(size_t output, const std::string& path) {
  return fmt::format("out/{}/{}", output, lastPathComponent(path));
}

}  // namespace

Parcels::Parcels(const StateFolder& state)
    : state_(state), folder_(joinPath(state.path(), "parcels")) {}

bool Parcels::make(ErrorText* error) {
  return (!itemExistsNoFollow(folder_) || removeItem(folder_, error)) &&
         createDirectories(folder_, error);
}

void Parcels::judge(const std::vector<Job>& jobs, Faults* faults) {
  for (const Job& job : jobs) {
    std::set<std::string> names;
    for (const JobOption& option : job.options) {
      if (option.column->kind != ColumnKind::kInput) continue;
      const std::string& path = option.value;
      if (path.find_first_of("\t\r\n") != path.npos) {
        refuse(job, option.column->name, "its path holds a tab or a line end, and cannot travel",
               faults);
      } else if (!names.insert(lastPathComponent(path)).second) {
        refuse(job, option.column->name,
               "another file of the row has its name, and they travel in one folder", faults);
      }
    }
  }
}

bool Parcels::pack(const Job& job, ErrorText* error) const {
  inspect::JsonWriter json;
  json.beginObject();
  json.text("command", nameOf(job.command)).text("name", job.name);
  size_t outputs = 0;
  for (const JobOption& option : job.options) {
    std::string value = option.value;
    if (option.column->kind == ColumnKind::kSwitch) value = "yes";
    if (option.column->kind == ColumnKind::kInput) value = lastPathComponent(value);
    if (option.column->kind == ColumnKind::kOutput)
      value = job.key + "/" + placeOf(outputs++, value);
    json.text(option.column->name, value);
  }
  // One line, as tables have it.
  std::string line = json.endObject().take();
  std::erase(line, '\n');
  return writeFileAtomically(joinPath(folder_, job.key + ".jsonl"), line + "\n", error);
}

std::vector<std::string> Parcels::filesOf(const Job& job) const {
  std::vector<std::string> files = {fmt::format("{}/./{}.jsonl", folder_, job.key)};
  for (const std::string& path : job.paths(ColumnKind::kInput)) {
    files.push_back(fmt::format("{}/./{}", containingFolder(path), lastPathComponent(path)));
  }
  return files;
}

std::optional<JobResult> Parcels::unpack(const Job& job) const {
  const std::string parcel = joinPath(folder_, job.key);
  const std::string row = onlyItem(joinPath(parcel, "rows"));
  if (row.empty()) return std::nullopt;
  auto result = take(job, parcel, row);
  if (!result) return std::nullopt;
  ErrorText error;
  if (!state_.write(job, *result, &error)) {
    result->status = JobStatus::kFailed;
    result->text = "the result could not be written: " + error.text();
  }
  removeItem(parcel);
  return result;
}

std::optional<JobResult> Parcels::take(const Job& job, const std::string& parcel,
                                       const std::string& row) const {
  auto result = readResult(joinPath(row, "result.json"));
  if (!result) return std::nullopt;
  const auto outputs = job.paths(ColumnKind::kOutput);
  const bool isDone = result->status == JobStatus::kDone;
  if (isDone && result->sizes.size() != outputs.size()) return std::nullopt;
  // Files may still be on their way.
  for (size_t i = 0; isDone && i < outputs.size(); ++i) {
    if (!isFileOf(joinPath(parcel, placeOf(i, outputs[i])), result->sizes[i])) return std::nullopt;
  }
  ErrorText error;
  bool isKept = createDirectories(state_.folderOf(job), &error);
  for (const auto& [from, to] : {std::pair(joinPath(row, "output.txt"), state_.outputOf(job)),
                                 std::pair(joinPath(row, "Orvane.log"), state_.logOf(job))}) {
    const auto kept = statusNoFollow(from);
    if (kept && kept->kind == ItemKind::kFile) deliverFile(from, to, Source::kSpent);
  }
  for (size_t i = 0; isKept && isDone && i < outputs.size(); ++i) {
    isKept =
        deliverFile(joinPath(parcel, placeOf(i, outputs[i])), outputs[i], Source::kSpent, &error);
  }
  if (!isKept) {
    result->status = JobStatus::kFailed;
    result->text = "what came back could not be written: " + error.text();
  }
  return result;
}

}  // namespace tovrek::batch
