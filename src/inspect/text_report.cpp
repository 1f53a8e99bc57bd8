// Reports for a terminal, or for a file that people read.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/paths.h"
#include "inspect/document.h"
#include "inspect/reports.h"
#include "inspect/text.h"

namespace tovrek::inspect {
namespace {

constexpr const char* kRed = "\x1b[31m";
constexpr const char* kYellow = "\x1b[33m";
constexpr const char* kBold = "\x1b[1m";
constexpr const char* kPlain = "\x1b[0m";
constexpr size_t kNameWidth = 15;

std::string coloured(std::string text, const char* colour, const TextStyle& style) {
  return style.colours ? colour + std::move(text) + kPlain : std::move(text);
}

void appendSection(const Section& section, size_t depth, const TextStyle& style, std::string* out) {
  const std::string indent(depth * 2, ' ');
  *out += indent + coloured(forTerminal(section.title), kBold, style) + "\n";
  for (const Field& field : section.fields) {
    std::string name = forTerminal(field.name);
    for (const std::string& value : field.values) {
      *out += fmt::format("{}  {:<{}} {}\n", indent, name, kNameWidth, forTerminal(value));
      name.clear();
    }
  }
  for (const Section& part : section.parts) appendSection(part, depth + 1, style, out);
}

const char* colourOf(Severity severity) {
  if (severity == Severity::kError) return kRed;
  return severity == Severity::kWarning ? kYellow : kPlain;
}

void appendFindings(const Findings& findings, const TextStyle& style, std::string* out) {
  for (const Finding& finding : findings) {
    *out += coloured(nameOf(finding.severity), colourOf(finding.severity), style);
    *out += " " + finding.code + ": ";
    if (!finding.place.empty()) *out += forTerminal(finding.place) + ": ";
    *out += forTerminal(finding.reason) + "\n    " + finding.remedy + "\n";
  }
  *out += "Verdict: " + verdictText(findings) + "\n";
}

double firstEnd(const Subject& subject) {
  const auto expiries = subject.expiries();
  return expiries.empty() ? std::numeric_limits<double>::infinity() : expiries.front().at;
}

std::string numbered(size_t count, std::string_view what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

struct Row {
  double end;
  std::vector<std::string> cells;
};

Row rowFor(const Subject& subject, double now) {
  const double end = firstEnd(subject);
  std::string name, version;
  if (subject.app) {
    name = subject.app->name + " (" + subject.app->identifier + ")";
    version = subject.app->version;
  } else if (!subject.profiles.empty()) {
    name = subject.profiles.front().grants.name;
  } else if (!subject.certificates.empty()) {
    name = subject.certificates.front().signerName();
  }
  const std::string days =
      std::isfinite(end) ? fmt::format("{:.0f}", std::floor((end - now) / 86400)) : "";
  const FindingCounts counts = countOf(subject.findings);
  const std::string verdict = counts.errors != 0     ? numbered(counts.errors, "error")
                              : counts.warnings != 0 ? numbered(counts.warnings, "warning")
                                                     : "sound";
  return {end,
          {std::isfinite(end) ? dateText(end) : "-", days, nameOf(subject.kind), verdict, name,
           version, subject.path}};
}

}  // namespace

std::string textReport(const Subject& subject, const TextStyle& style) {
  std::string out = coloured(forTerminal(subject.path), kBold, style) + "\n";
  for (const Section& section : describe(subject)) {
    out += "\n";
    appendSection(section, 0, style, &out);
  }
  out += "\n";
  appendFindings(subject.findings, style, &out);
  return out;
}

std::string tableReport(const std::vector<Subject>& subjects, double now,
                        std::optional<int> withinDays, const TextStyle& style) {
  std::vector<Row> rows;
  for (const Subject& subject : subjects) {
    Row row = rowFor(subject, now);
    const bool isSoon = !withinDays || row.end - now <= *withinDays * 86400.0;
    if (isSoon || subject.kind == SubjectKind::kUnreadable) rows.push_back(std::move(row));
  }
  std::ranges::stable_sort(rows, {}, &Row::end);
  rows.insert(rows.begin(), Row{0, {"ENDS", "DAYS", "KIND", "VERDICT", "NAME", "VERSION", "PATH"}});
  std::vector<size_t> widths(rows.front().cells.size(), 0);
  for (Row& row : rows) {
    for (size_t i = 0; i < row.cells.size(); ++i) {
      row.cells[i] = forTerminal(row.cells[i]);
      widths[i] = std::max(widths[i], row.cells[i].size());
    }
  }
  std::string out;
  for (const Row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.cells.size(); ++i) {
      const bool isLast = i + 1 == row.cells.size();
      line += isLast ? row.cells[i] : fmt::format("{:<{}}  ", row.cells[i], widths[i]);
    }
    out += (&row == &rows.front() ? coloured(line, kBold, style) : line) + "\n";
  }
  return out;
}

}  // namespace tovrek::inspect
