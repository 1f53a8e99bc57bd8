#include "programs/batch/Options.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <span>

#include "host/paths.h"

namespace tovrek::batch {
namespace {

constexpr size_t kMostAtATime = 4096;
constexpr int kMostDays = 36500;
constexpr int64_t kMostSeconds = 7 * 86400;

// Verbs that know an option, in letters: r run, n renew, c check.
struct OptionRow {
  std::string_view name, verbs;
  bool takesValue;
  std::function<bool(Options*, const std::string&, ErrorText*)> take;
};

template <class Field>
auto path(Field field) {
  return [field](Options* options, const std::string& value, ErrorText*) {
    options->*field = standardizePath(value);
    return true;
  };
}
template <class Field>
auto runPath(Field field) {
  return [field](Options* options, const std::string& value, ErrorText*) {
    options->run.*field = standardizePath(value);
    return true;
  };
}

template <class Number>
bool takeNumber(std::string_view name, const std::string& value, Number least, Number most,
                Number* number, ErrorText* error) {
  const char* end = value.data() + value.size();
  const auto parsed = std::from_chars(value.data(), end, *number);
  return (parsed.ec == std::errc() && parsed.ptr == end && *number >= least && *number <= most) ||
         fail(error,
              fmt::format("{} takes a number from {} to {}, not {}", name, least, most, value));
}

bool takeJobs(Options* options, const std::string& value, ErrorText* error) {
  return takeNumber<size_t>("--jobs", value, 1, kMostAtATime, &options->run.jobs.emplace(), error);
}
bool takeIndex(Options* options, const std::string& value, ErrorText* error) {
  constexpr size_t kMost = 999'999;
  return takeNumber<size_t>("--index", value, 0, kMost, &options->run.index.emplace(), error);
}
bool takeLimit(Options* options, const std::string& value, ErrorText* error) {
  int64_t seconds = 0;
  if (!takeNumber<int64_t>("--timeout", value, 1, kMostSeconds, &seconds, error)) return false;
  options->run.limit = std::chrono::seconds(seconds);
  return true;
}
bool takeDays(Options* options, const std::string& value, ErrorText* error) {
  return takeNumber("--within", value, 0, kMostDays, &options->within, error);
}
bool takeEngine(Options* options, const std::string& value, ErrorText* error) {
  constexpr std::pair<std::string_view, EngineKind> kEngines[] = {
      {"local", EngineKind::kLocal},
      {"parallel", EngineKind::kParallel},
      {"slurm", EngineKind::kSlurm}};
  for (const auto& [name, kind] : kEngines) {
    if (value != name) continue;
    options->run.engine = kind;
    return true;
  }
  return fail(error, fmt::format("there is no engine {}: local, parallel or slurm", value));
}
bool takeCertificate(Options* options, const std::string& value, ErrorText*) {
  options->certificate = value;
  return true;
}

std::span<const OptionRow> optionRows() {
  static const OptionRow kRows[] = {
      {"--jobs", "rn", true, takeJobs},
      {"--index", "r", true, takeIndex},
      {"--timeout", "rn", true, takeLimit},
      {"--engine", "rn", true, takeEngine},
      {"--state", "rn", true, runPath(&RunOptions::state)},
      {"--hosts", "rn", true, runPath(&RunOptions::hosts)},
      {"--remote", "rn", true, runPath(&RunOptions::remote)},
      {"--report", "rn", true, runPath(&RunOptions::report)},
      {"--resume", "r", false,
       [](Options* options, const std::string&, ErrorText*) { return options->run.resume = true; }},
      {"--cert", "n", true, takeCertificate},
      {"--profiles", "n", true, path(&Options::profiles)},
      {"--keychain", "n", true, path(&Options::keychain)},
      {"--out", "n", true, path(&Options::output)},
      {"--table", "n", true, runPath(&RunOptions::table)},
      {"--within", "n", true, takeDays},
      {"--yes", "n", false,
       [](Options* options, const std::string&, ErrorText*) { return options->yes = true; }},
  };
  return kRows;
}

class Parser {
 public:
  Parser(const std::vector<std::string>& words, ErrorText* error) : words_(words), error_(error) {}

  std::optional<Options> parse() {
    if (words_.empty()) return refuse("run, renew or check was expected");
    if (words_.front() == "--help") return options_;
    if (!takeVerb(words_.front()))
      return refuse(fmt::format("there is no {}: run, renew or check", words_.front()));
    bool onlyPaths = false;
    for (; at_ < words_.size(); ++at_) {
      const std::string& word = words_[at_];
      if (!onlyPaths && word == "--") {
        onlyPaths = true;
      } else if (!onlyPaths && word == "--help") {
        return Options();
      } else if (onlyPaths || word.size() < 2 || word.front() != '-') {
        paths_.push_back(word);
      } else if (!takeOption(word)) {
        return std::nullopt;
      }
    }
    return finish();
  }

 private:
  std::optional<Options> refuse(std::string reason) {
    fail(error_, std::move(reason));
    return std::nullopt;
  }

  bool takeVerb(const std::string& word) {
    if (word == "run") options_.verb = Verb::kRun;
    if (word == "renew") options_.verb = Verb::kRenew;
    if (word == "check") options_.verb = Verb::kCheck;
    letter_ = word == "renew" ? 'n' : word.front();
    return options_.verb != Verb::kHelp;
  }

  bool takeOption(const std::string& word) {
    const size_t sign = word.find('=');
    const std::string name = word.substr(0, sign);
    for (const OptionRow& row : optionRows()) {
      if (row.name != name || row.verbs.find(letter_) == row.verbs.npos) continue;
      if (std::ranges::find(seen_, row.name) != seen_.end())
        return fail(error_, name + " is given twice");
      seen_.push_back(row.name);
      std::string value;
      if (!row.takesValue && sign != word.npos) return fail(error_, name + " takes no value");
      if (row.takesValue && !takeValue(word, sign, &value)) return false;
      return row.take(&options_, value, error_);
    }
    return fail(error_, fmt::format("{} has no option {}", words_.front(), name));
  }

  bool takeValue(const std::string& word, size_t sign, std::string* value) {
    if (sign != word.npos) {
      *value = word.substr(sign + 1);
    } else if (at_ + 1 < words_.size()) {
      *value = words_[++at_];
    }
    return !value->empty() || fail(error_, word.substr(0, sign) + " needs a value");
  }

  std::optional<Options> finish() {
    const bool isRenewal = options_.verb == Verb::kRenew;
    if (paths_.size() != 1 || paths_.front().empty()) {
      return refuse(isRenewal ? "one folder was expected" : "one table was expected");
    }
    (isRenewal ? options_.folder.emplace() : options_.run.table) = standardizePath(paths_.front());
    if (isRenewal && (!options_.certificate || !options_.profiles || !options_.output)) {
      return refuse("renew needs --cert, --profiles and --out");
    }
    const RunOptions& run = options_.run;
    if (run.hosts && run.engine != EngineKind::kParallel) {
      return refuse("--hosts is for --engine parallel");
    }
    if (run.remote && !run.hosts) return refuse("--remote is for --hosts");
    if (run.index && (run.jobs || run.report || run.engine != EngineKind::kLocal)) {
      return refuse("--index is for one job, which --jobs, --report and --engine are not");
    }
    return options_;
  }

  const std::vector<std::string>& words_;
  ErrorText* error_;
  Options options_;
  std::vector<std::string> paths_;
  std::vector<std::string_view> seen_;
  size_t at_ = 1;
  char letter_ = 0;
};

}  // namespace

std::optional<Options> parseOptions(const std::vector<std::string>& words, ErrorText* error) {
  return Parser(words, error).parse();
}

}  // namespace tovrek::batch
