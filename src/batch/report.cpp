#include "batch/report.h"

#include <fmt/format.h>

#include <algorithm>

#include "batch/failure_text.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/version.h"
#include "inspect/JsonWriter.h"
#include "inspect/page_style.h"
#include "inspect/text.h"

namespace tovrek::batch {
namespace {

using inspect::forHtml;

constexpr size_t kLongestLog = 16 << 10;  // of a row; its end tells most
constexpr size_t kAllLogs = 32 << 20;     // what browsers still open

enum class RowState { kDone, kFailed, kLeft };

RowState stateOf(const std::optional<JobResult>& result) {
  if (!result || result->status == JobStatus::kStopped) return RowState::kLeft;
  return result->status == JobStatus::kDone ? RowState::kDone : RowState::kFailed;
}

const char* nameOf(RowState state) {
  constexpr const char* kNames[] = {"done", "failed", "left"};
  return kNames[static_cast<size_t>(state)];
}

size_t countOf(const Report& report, RowState wanted) {
  return static_cast<size_t>(std::ranges::count(report.results, wanted, stateOf));
}

// Text of several lines, each of them escaped.
std::string linesForHtml(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    shown += forHtml(text.substr(0, end)) + "\n";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return shown;
}

class SummaryPage {
 public:
  explicit SummaryPage(const Report& report) : report_(report) {}

  std::string write() {
    const std::string title = "Batch: " + lastPathComponent(report_.table);
    out_ = fmt::format(inspect::kPageHead, forHtml(title), inspect::kPageStyle);
    out_ += fmt::format("<header><h1>{}</h1><p>{}</p></header>\n<main>\n", forHtml(title),
                        forHtml(dateDescription(report_.now)));
    verdict();
    overview();
    for (const RowState state : {RowState::kFailed, RowState::kLeft, RowState::kDone}) {
      for (size_t i = 0; i < report_.jobs.size(); ++i) {
        if (stateOf(report_.results[i]) == state) row(i);
      }
    }
    out_ += "</main>\n</body>\n</html>\n";
    return std::move(out_);
  }

 private:
  void verdict() {
    const size_t done = countOf(report_, RowState::kDone);
    out_ += fmt::format(
        "<p class=\"verdict {}\"><strong>{} of {} done</strong>, {} failed, {} left; the run took "
        "{:.1f} s</p>\n",
        done == report_.jobs.size() ? "sound" : "error", done, report_.jobs.size(),
        countOf(report_, RowState::kFailed), countOf(report_, RowState::kLeft), report_.seconds);
  }

  void overview() {
    out_ +=
        "<table><caption>Rows</caption><thead><tr><th scope=\"col\">Row</th>"
        "<th scope=\"col\">Name</th><th scope=\"col\">Command</th><th scope=\"col\">State</th>"
        "<th scope=\"col\">Seconds</th></tr></thead><tbody>\n";
    for (size_t i = 0; i < report_.jobs.size(); ++i) {
      const Job& job = report_.jobs[i];
      const auto& result = report_.results[i];
      out_ += fmt::format(
          "<tr><td>{}</td><td><a href=\"#row{}\">{}</a></td><td>{}</td><td>{}</td><td>{}</td>"
          "</tr>\n",
          job.row, job.row, forHtml(job.name), batch::nameOf(job.command), nameOf(stateOf(result)),
          result ? fmt::format("{:.2f}", result->seconds) : "");
    }
    out_ += "</tbody></table>\n";
  }

  void row(size_t index) {
    const Job& job = report_.jobs[index];
    const auto& result = report_.results[index];
    const RowState state = stateOf(result);
    out_ += fmt::format("<article id=\"row{0}\" aria-labelledby=\"title{0}\">\n", job.row);
    out_ +=
        fmt::format("<h2 id=\"title{}\">Row {}: {}</h2>\n", job.row, job.row, forHtml(job.name));
    const char* tone = state == RowState::kDone ? "sound" : "error";
    out_ += fmt::format("<p class=\"verdict {}\"><strong>{}</strong> {}</p>\n", tone, nameOf(state),
                        forHtml(result ? result->text : ""));
    out_ += "<dl>\n";
    for (const JobOption& option : job.options) {
      out_ +=
          fmt::format("<dt>{}</dt><dd>{}</dd>\n", option.column->name,
                      forHtml(option.column->kind == ColumnKind::kSwitch ? "yes" : option.value));
    }
    if (result) out_ += fmt::format("<dt>host</dt><dd>{}</dd>\n", forHtml(result->host));
    out_ += "</dl>\n";
    if (state != RowState::kLeft) {
      log("Output", report_.state.outputOf(job));
      log("Log", report_.state.logOf(job));
    }
    out_ += "</article>\n";
  }

  void log(const char* title, const std::string& path) {
    out_ += fmt::format("<details><summary>{}</summary>", title);
    const std::string end = endOfFile(path, kLongestLog);
    if (shownLogs_ + end.size() > kAllLogs) {
      out_ += fmt::format("<p>{}</p>", forHtml(path));
    } else {
      shownLogs_ += end.size();
      const bool isCut = fileSize(path).value_or(0) > end.size();
      if (isCut) out_ += fmt::format("<p>The end of {}:</p>", forHtml(path));
      out_ += fmt::format("<pre style=\"white-space:pre-wrap\">{}</pre>", linesForHtml(end));
    }
    out_ += "</details>\n";
  }

  const Report& report_;
  std::string out_;
  size_t shownLogs_ = 0;
};

void writeRow(const Report& report, size_t index, inspect::JsonWriter* json) {
  const Job& job = report.jobs[index];
  const auto& result = report.results[index];
  json->beginObject();
  json->number("row", job.row).text("name", job.name).text("command", batch::nameOf(job.command));
  json->text("status", nameOf(stateOf(result))).text("in", job.input());
  json->beginArray("outputs");
  for (const std::string& path : job.paths(ColumnKind::kOutput)) json->text("", path);
  json->endArray();
  if (result) {
    json->number("exit", static_cast<uint64_t>(std::max(result->exit, 0)));
    json->text("text", result->text).text("host", result->host).text("digest", result->digest);
    json->text("started", dateDescription(result->started));
    json->text("seconds", fmt::format("{:.3f}", result->seconds));
  }
  json->text("output", report.state.outputOf(job)).text("log", report.state.logOf(job));
  json->endObject();
}

}  // namespace

std::string jsonSummary(const Report& report) {
  inspect::JsonWriter json;
  json.beginObject();
  json.number("schema", 1).text("date", dateDescription(report.now)).text("table", report.table);
  json.text("version", kToolVersion).text("seconds", fmt::format("{:.3f}", report.seconds));
  json.number("jobs", report.jobs.size());
  for (const RowState state : {RowState::kDone, RowState::kFailed, RowState::kLeft}) {
    json.number(nameOf(state), countOf(report, state));
  }
  json.beginArray("rows");
  for (size_t i = 0; i < report.jobs.size(); ++i) writeRow(report, i, &json);
  json.endArray().endObject();
  return json.take();
}

std::string htmlSummary(const Report& report) {
  return SummaryPage(report).write();
}

bool writeReport(const std::string& folder, const Report& report, ErrorText* error) {
  return createDirectories(folder, error) &&
         writeFileAtomically(joinPath(folder, "summary.json"), jsonSummary(report), error) &&
         writeFileAtomically(joinPath(folder, "index.html"), htmlSummary(report), error);
}

}  // namespace tovrek::batch
