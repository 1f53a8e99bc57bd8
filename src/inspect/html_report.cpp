// One page for a browser. It holds all that it shows, needs no script, and everything that comes
// from an input goes through forHtml().
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "formats/base64.h"
#include "host/paths.h"
#include "inspect/document.h"
#include "inspect/page_style.h"
#include "inspect/reports.h"
#include "inspect/text.h"

namespace tovrek::inspect {
namespace {

constexpr double kDayInSeconds = 86400;
constexpr double kTimelineDays = 3 * 365;  // what ends later stands at its right end

class Page {
 public:
  std::string write(const std::vector<Subject>& subjects, double now) {
    now_ = now;
    const std::string title = subjects.size() == 1
                                  ? "Inspect: " + lastPathComponent(subjects.front().path)
                                  : fmt::format("Inspect: {} inputs", subjects.size());
    out_ = fmt::format(kPageHead, forHtml(title), kPageStyle);
    out_ += fmt::format("<header><h1>{}</h1><p>As of {}</p></header>\n<main>\n", forHtml(title),
                        dateText(now));
    if (subjects.size() > 1) overview(subjects);
    for (size_t i = 0; i < subjects.size(); ++i) subject(subjects[i], i);
    out_ += "</main>\n</body>\n</html>\n";
    return std::move(out_);
  }

 private:
  void element(std::string_view name, std::string_view text) {
    out_ += fmt::format("<{0}>{1}</{0}>", name, forHtml(text));
  }

  void overview(const std::vector<Subject>& subjects) {
    out_ +=
        "<nav aria-label=\"Inputs\"><table><caption>Inputs</caption><thead><tr>"
        "<th scope=\"col\">Input</th><th scope=\"col\">Kind</th><th scope=\"col\">Verdict</th>"
        "<th scope=\"col\">Ends</th></tr></thead><tbody>\n";
    for (size_t i = 0; i < subjects.size(); ++i) {
      const auto expiries = subjects[i].expiries();
      out_ += fmt::format("<tr><td><a href=\"#input{}\">{}</a></td>", i, forHtml(subjects[i].path));
      element("td", nameOf(subjects[i].kind));
      element("td", verdictText(subjects[i].findings));
      element("td", expiries.empty() ? "" : dateText(expiries.front().at));
      out_ += "</tr>\n";
    }
    out_ += "</tbody></table></nav>\n";
  }

  void subject(const Subject& subject, size_t index) {
    const FindingCounts counts = countOf(subject.findings);
    const bool isRefused = subject.forecast && !subject.forecast->wouldWrap;
    const char* tone = counts.errors != 0 || isRefused ? "error"
                       : counts.warnings != 0          ? "warning"
                                                       : "sound";
    out_ += fmt::format("<article id=\"input{0}\" aria-labelledby=\"title{0}\">\n", index);
    out_ += fmt::format("<h2 id=\"title{}\">{}</h2>\n", index, forHtml(subject.path));
    out_ += fmt::format("<p class=\"verdict {}\"><strong>Verdict:</strong> {}</p>\n", tone,
                        forHtml(verdictText(subject.findings)));
    if (subject.forecast) {
      out_ += fmt::format("<p class=\"verdict {}\"><strong>Wrap:</strong> {}</p>\n",
                          isRefused ? "error" : "sound",
                          isRefused ? "would be refused" : "would be wrapped");
    }
    findings("Findings", subject.findings);
    if (subject.forecast) {
      findings("In the way of a wrap", subject.forecast->obstacles);
      findings("Remarks about a wrap", subject.forecast->remarks);
    }
    timeline(subject);
    icons(subject);
    if (subject.comparison) comparison(*subject.comparison);
    for (const Section& each : describe(subject)) {
      if (isShownOtherwise(each.title)) continue;
      section(each, 3, each.title != "Package");
    }
    out_ += "</article>\n";
  }

  static bool isShownOtherwise(std::string_view title) {
    return title == "Ends" || title == "Against the original" || title == "Before a wrap";
  }

  void findings(std::string_view title, const Findings& list) {
    if (list.empty()) return;
    out_ += fmt::format("<section><h3>{}</h3>\n<ul class=\"findings\">\n", title);
    for (const Finding& finding : list) {
      out_ += fmt::format("<li class=\"{0}\"><p><strong>{0}</strong> <code>{1}</code> ",
                          nameOf(finding.severity), forHtml(finding.code));
      if (!finding.place.empty()) out_ += fmt::format("<b>{}</b>: ", forHtml(finding.place));
      out_ += forHtml(finding.reason) + "</p>";
      element("p", finding.remedy);
      out_ += "</li>\n";
    }
    out_ += "</ul></section>\n";
  }

  // Bars from today to the end, and the same in words.
  void timeline(const Subject& subject) {
    const auto expiries = subject.expiries();
    if (expiries.empty()) return;
    out_ +=
        "<section><h3>Ends</h3>\n<table class=\"timeline\"><thead><tr>"
        "<th scope=\"col\">Date</th><th scope=\"col\">Days left</th>"
        "<th scope=\"col\">What</th><th scope=\"col\" aria-hidden=\"true\"></th>"
        "</tr></thead><tbody>\n";
    for (const auto& expiry : expiries) {
      const double days = std::floor((expiry.at - now_) / kDayInSeconds);
      const double share = std::clamp(days / kTimelineDays, 0.0, 1.0) * 100;
      out_ += fmt::format("<tr class=\"{}\">", days < 0    ? "error"
                                               : days < 30 ? "warning"
                                                           : "sound");
      element("td", dateText(expiry.at));
      element("td", days < 0 ? "over" : fmt::format("{:.0f}", days));
      element("td", expiry.what);
      out_ += fmt::format(
          "<td aria-hidden=\"true\"><div class=\"bar\" style=\"width:{:.1f}%\">"
          "</div></td></tr>\n",
          share);
    }
    out_ += "</tbody></table></section>\n";
  }

  void icons(const Subject& subject) {
    std::vector<Icon> all;
    if (subject.app) all = subject.app->icons;
    if (subject.package) {
      all.insert(all.end(), subject.package->icons.begin(), subject.package->icons.end());
    }
    if (all.empty()) return;
    out_ += "<section><h3>Icons</h3>\n<div class=\"icons\">\n";
    for (const Icon& icon : all) {
      const std::string name = forHtml(lastPathComponent(icon.path));
      out_ += "<figure>";
      // Browsers do not know the form that the platform's tools make of a picture.
      if (!icon.png.empty() && icon.png.find("CgBI") != 12) {
        out_ += fmt::format("<img alt=\"Icon {}\" width=\"{}\" src=\"data:image/png;base64,{}\">",
                            name, std::min<uint32_t>(icon.width, 120), base64Of(icon.png));
      }
      out_ += fmt::format("<figcaption>{} ({}x{})</figcaption></figure>\n", name, icon.width,
                          icon.height);
    }
    out_ += "</div></section>\n";
  }

  void comparison(const Comparison& comparison) {
    out_ += "<section><h3>Against the original</h3>\n";
    for (const ChangeGroup& group : comparison) {
      out_ += fmt::format("<details{}><summary>{}: {} changed, {} unchanged</summary>\n",
                          group.changes.empty() ? "" : " open", forHtml(group.title),
                          group.changes.size(), group.unchanged);
      if (!group.changes.empty()) changeTable(group);
      out_ += "</details>\n";
    }
    out_ += "</section>\n";
  }

  void changeTable(const ChangeGroup& group) {
    out_ +=
        "<table class=\"diff\"><thead><tr><th scope=\"col\">What</th>"
        "<th scope=\"col\">Before</th><th scope=\"col\">After</th></tr></thead><tbody>\n";
    for (const Change& change : group.changes) {
      out_ += fmt::format("<tr><th scope=\"row\">{}</th>", forHtml(change.subject));
      side("del", change.before, change.after.empty() ? "removed" : "changed");
      side("ins", change.after, change.before.empty() ? "added" : "changed");
      out_ += "</tr>\n";
    }
    out_ += "</tbody></table>\n";
  }

  void side(std::string_view mark, const std::string& text, std::string_view what) {
    if (text.empty()) {
      out_ += "<td></td>";
    } else {
      out_ += fmt::format("<td><{0} title=\"{2}\">{1}</{0}></td>", mark, forHtml(text), what);
    }
  }

  void section(const Section& each, int level, bool isOpen) {
    const int shown = std::min(level, 6);
    out_ += fmt::format("<details{}><summary><h{} class=\"inline\">{}</h{}></summary>\n",
                        isOpen ? " open" : "", shown, forHtml(each.title), shown);
    if (!each.fields.empty()) {
      out_ += "<dl>\n";
      for (const Field& field : each.fields) {
        out_ += fmt::format("<dt>{}</dt>", forHtml(field.name));
        for (const std::string& value : field.values) element("dd", value);
        out_ += "\n";
      }
      out_ += "</dl>\n";
    }
    for (const Section& part : each.parts) section(part, level + 1, level < 4);
    out_ += "</details>\n";
  }

  std::string out_;
  double now_ = 0;
};

}  // namespace

std::string htmlReport(const std::vector<Subject>& subjects, double now) {
  return Page().write(subjects, now);
}

}  // namespace tovrek::inspect
