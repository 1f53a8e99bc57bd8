#include "programs/inspect/inspect_program.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "host/clock.h"
#include "host/confinement.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/limits.h"
#include "host/paths.h"
#include "host/terminal.h"
#include "inspect/comparison.h"
#include "inspect/explanation.h"
#include "inspect/forecast.h"
#include "inspect/inspect.h"
#include "inspect/reports.h"
#include "inspect/text.h"
#include "programs/inspect/Options.h"
#include "settings/settings_file.h"

namespace tovrek::inspect {
namespace {

constexpr const char* kUsage =
    "usage: Inspect PATH... [--against ORIGINAL] [--cert NAME|SHA1] [--profile FILE|FOLDER]\n"
    "                       [--keychain PATH] [--bundle-id ID] [--upgrade] "
    "[--no-strip-extensions]\n"
    "                       [--json | --html FILE] [--strict] [--within DAYS]\n"
    "       Inspect --explain CODE|TEXT\n"
    "       Inspect --version\n";

class Inspection {
 public:
  Inspection(const Options& options, const Streams& streams)
      : options_(options), streams_(streams) {
    rules_.now = currentTime();
    if (options.within) rules_.soonDays = *options.within;
    const char* noColour = std::getenv("NO_COLOR");
    style_.colours = outputIsTerminal() && (noColour == nullptr || *noColour == '\0');
  }

  int run() {
    for (const std::string& path : options_.paths) {
      if (!inspectPath(path)) return kCannotTell;
    }
    return print() ? status() : kCannotTell;
  }

 private:
  bool inspectPath(const std::string& given) {
    const std::string path = standardizePath(given);
    const bool isFolder = isDirectory(path) && toLowerAscii(pathExtension(path)) != "app";
    if (!isFolder) {
      inspectOne(path);
      return true;
    }
    isTable_ = true;
    ErrorText reason;
    const auto inputs = inputsIn(path, &reason);
    if (!inputs) {
      streams_.error(fmt::format("Inspect: {}: {}\n", forTerminal(path), reason.text()));
      return false;
    }
    for (const std::string& input : *inputs) inspectOne(input);
    return true;
  }

  void inspectOne(const std::string& path) {
    OpenApp open;
    Subject subject = inspectInput(path, rules_, &open);
    const bool isApp = subject.app.has_value();
    if (isApp && (options_.certificate || options_.profile)) {
      subject.forecast =
          forecastWrap({options_.certificate, options_.profile, options_.keychain,
                        options_.bundleId, options_.isUpgrade, options_.keepsExtensions},
                       rules_, open, subject);
    }
    if (isApp && options_.against) compareWith(*options_.against, open, &subject);
    subjects_.push_back(std::move(subject));
  }

  void compareWith(const std::string& path, const OpenApp& open, Subject* subject) {
    OpenApp originalOpen;
    const Subject original = inspectInput(standardizePath(path), rules_, &originalOpen);
    if (!original.app) {
      report(&subject->findings, "input-unreadable", path, "the original holds no app");
      cannotTell_ = true;
      return;
    }
    subject->comparison = compare({*original.app, *originalOpen.tree, originalOpen.folder},
                                  {*subject->app, *open.tree, open.folder}, &subject->findings);
    sortFindings(&subject->findings);
  }

  bool print() {
    if (options_.json) {
      streams_.out(jsonReport(subjects_, rules_.now));
    } else if (options_.html) {
      ErrorText reason;
      if (!writeFileOrDevice(*options_.html, htmlReport(subjects_, rules_.now), &reason)) {
        streams_.error(
            fmt::format("Inspect: {}: {}\n", forTerminal(*options_.html), reason.text()));
        return false;
      }
    } else if (isTable_ || subjects_.size() > 1) {
      streams_.out(tableReport(subjects_, rules_.now, options_.within, style_));
    } else {
      streams_.out(textReport(subjects_.front(), style_));
    }
    return !outputFailed();
  }

  int status() const {
    int worst = kNothingFound;
    for (const Subject& subject : subjects_) {
      if (subject.kind == SubjectKind::kUnreadable || cannotTell_) return kCannotTell;
      const FindingCounts counts = countOf(subject.findings);
      const bool isRefused = subject.forecast && !subject.forecast->wouldWrap;
      if (counts.errors != 0 || isRefused || (options_.strict && counts.warnings != 0)) {
        worst = kErrorsFound;
      }
    }
    return worst;
  }

  const Options& options_;
  const Streams& streams_;
  Rules rules_;
  TextStyle style_;
  std::vector<Subject> subjects_;
  bool isTable_ = false, cannotTell_ = false;
};

// The page and scratch files are all that is ever written. Where the page goes to a device, such as
// /dev/stdout, that may be a file anywhere.
void confine(const Options& options) {
  std::vector<std::string> folders = {"/dev/null", "/dev/tty"};
  if (const auto temporary = systemTemporaryFolder()) folders.push_back(*temporary);
  if (options.html) {
    if (options.html->starts_with("/dev/")) return;
    folders.push_back(containingFolder(*options.html));
  }
  tovrek::confine({.toWrite = folders});
}

int explain(const std::string& what, const Streams& streams) {
  const std::string text = explanationOf(what);
  if (text.empty()) {
    streams.error(fmt::format("Inspect: nothing is known of \"{}\"\n", forTerminal(what)));
    return kCannotTell;
  }
  streams.out(text);
  return outputFailed() ? kCannotTell : kNothingFound;
}

// A settings file that cannot be read is told of where the wrap is foreseen.
void raiseLimits() {
  Settings settings;
  if (readSettings(&settings, nullptr)) putInForce(settings.limits);
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  ErrorText reason;
  const auto options = parseOptions(arguments.words, &reason);
  if (!options) {
    streams.error(fmt::format("Inspect: {}\n{}", forTerminal(reason.text()), kUsage));
    return kCannotTell;
  }
  if (options->help) {
    streams.out(kUsage);
    return kNothingFound;
  }
  confine(*options);
  raiseLimits();
  return options->explain ? explain(*options->explain, streams)
                          : Inspection(*options, streams).run();
}

}  // namespace tovrek::inspect
