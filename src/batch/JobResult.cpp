#include "batch/JobResult.h"

#include <fmt/format.h>

#include <charconv>

#include "batch/json_object.h"
#include "host/clock.h"
#include "host/version.h"
#include "inspect/JsonWriter.h"
#include "inspect/text.h"

namespace tovrek::batch {
namespace {

constexpr std::string_view kDone = "done", kFailed = "failed";

template <class Number>
std::optional<Number> numberOf(const std::string& text) {
  Number value{};
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return value;
}

}  // namespace

std::string resultText(const Job& job, const JobResult& result) {
  inspect::JsonWriter json;
  json.beginObject();
  json.number("schema", 1).number("row", job.row).text("name", job.name);
  json.text("command", nameOf(job.command));
  json.text("status", result.status == JobStatus::kDone ? kDone : kFailed);
  json.number("exit", static_cast<uint64_t>(result.exit)).text("text", result.text);
  json.text("digest", result.digest).text("version", kToolVersion).text("host", result.host);
  json.text("started", fmt::format("{:.3f}", result.started));
  json.text("startedOn", dateDescription(result.started));
  json.text("seconds", fmt::format("{:.3f}", result.seconds));
  const auto outputs = job.paths(ColumnKind::kOutput);
  json.number("outputs", result.sizes.size());
  for (size_t i = 0; i < result.sizes.size() && i < outputs.size(); ++i) {
    json.text(fmt::format("output{}", i), outputs[i]);
    json.number(fmt::format("size{}", i), result.sizes[i]);
  }
  return json.endObject().take();
}

std::optional<JobResult> parseResult(std::string_view text) {
  const auto members = readJsonObject(text, nullptr);
  if (!members || memberText(*members, "schema") != "1") return std::nullopt;
  JobResult result;
  const std::string status = memberText(*members, "status");
  if (status != kDone && status != kFailed) return std::nullopt;
  result.status = status == kDone ? JobStatus::kDone : JobStatus::kFailed;
  const auto exit = numberOf<int>(memberText(*members, "exit"));
  const auto started = numberOf<double>(memberText(*members, "started"));
  const auto seconds = numberOf<double>(memberText(*members, "seconds"));
  const auto outputs = numberOf<size_t>(memberText(*members, "outputs"));
  constexpr size_t kMostOutputs = 16;
  if (!exit || !started || !seconds || !outputs || *outputs > kMostOutputs) return std::nullopt;
  result.exit = *exit;
  result.started = *started;
  result.seconds = *seconds;
  result.text = memberText(*members, "text");
  result.digest = memberText(*members, "digest");
  result.host = memberText(*members, "host");
  for (size_t i = 0; i < *outputs; ++i) {
    const auto size = numberOf<uint64_t>(memberText(*members, fmt::format("size{}", i)));
    if (!size) return std::nullopt;
    result.sizes.push_back(*size);
  }
  return result;
}

}  // namespace tovrek::batch
