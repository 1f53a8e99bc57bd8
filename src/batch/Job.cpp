#include "batch/Job.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "formats/Digest.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

bool isOwnColumn(std::string_view name) {
  return equalsIgnoringCase(name, "command") || equalsIgnoringCase(name, "name");
}

// What a column's name may have been meant as.
std::string unknownColumn(std::string_view name) {
  if (equalsIgnoringCase(name, "logFile")) {
    return "there is no such column: each row has a log of its own";
  }
  if (name.starts_with('-') && columnNamed(name.substr(1)) != nullptr) {
    return "there is no such column: options are written without their hyphen";
  }
  return "there is no such column";
}

// What of a label can stand in a file's name everywhere.
std::string plainName(std::string_view label) {
  constexpr size_t kLongest = 40;
  std::string plain;
  for (const char c : label.substr(0, kLongest)) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
    plain += isPlain ? c : '_';
  }
  // No name may be "..", or be hidden.
  return plain.empty() || plain.front() == '.' ? "_" + plain : plain;
}

class JobMaker {
 public:
  JobMaker(const Table& table, Faults* faults) : table_(table), faults_(*faults) {}

  std::vector<Job> make() {
    checkNames(table_.header, table_.headerLine);
    checkNames(table_.defaults, 0);
    std::vector<Job> jobs;
    for (const TableRow& row : table_.rows) {
      row_ = &row;
      job_ = Job();
      if (makeJob()) jobs.push_back(std::move(job_));
    }
    return jobs;
  }

 private:
  bool refuse(std::string column, std::string reason) {
    faults_.push_back({row_->number, row_->line, std::move(column), std::move(reason)});
    return false;
  }

  // Once for the whole table, not for each row.
  void checkNames(const std::vector<Entry>& entries, size_t line) {
    for (size_t i = 0; i < entries.size(); ++i) {
      const std::string& name = entries[i].column;
      const bool isKnown = isOwnColumn(name) || columnNamed(name) != nullptr;
      if (!isKnown) faults_.push_back({0, line, name, unknownColumn(name)});
      const bool isTwice =
          std::any_of(entries.begin(), entries.begin() + static_cast<ptrdiff_t>(i),
                      [&](const Entry& before) { return equalsIgnoringCase(before.column, name); });
      if (isTwice) faults_.push_back({0, line, name, "the column stands there twice"});
    }
  }

  bool makeJob() {
    const size_t before = faults_.size();
    job_.row = row_->number;
    job_.line = row_->line;
    if (!takeCommand()) return false;
    for (const Entry& entry : row_->entries) takeEntry(entry, false);
    for (const Entry& entry : table_.defaults) takeEntry(entry, true);
    std::ranges::sort(job_.options, {}, &JobOption::column);
    requireOptions();
    if (faults_.size() != before) return false;
    finishNames();
    checkWords();
    return faults_.size() == before;
  }

  const std::string* ownValue(std::string_view name) const {
    for (const auto* entries : {&row_->entries, &table_.defaults}) {
      const auto found = std::ranges::find_if(
          *entries, [&](const Entry& each) { return equalsIgnoringCase(each.column, name); });
      if (found != entries->end()) return &found->value;
    }
    return nullptr;
  }

  bool takeCommand() {
    const std::string* word = ownValue("command");
    if (word == nullptr) return refuse("command", "it is missing");
    const auto command = commandNamed(*word);
    if (!command) return refuse("command", fmt::format("there is no command {}", *word));
    job_.command = *command;
    return true;
  }

  void takeEntry(const Entry& entry, bool isDefault) {
    if (isOwnColumn(entry.column)) return;
    const Column* column = columnNamed(entry.column);
    if (column == nullptr) {
      // Those of a header or of defaults were told of already.
      if (!isDefault && table_.headerLine == 0) refuse(entry.column, unknownColumn(entry.column));
      return;
    }
    if (!column->knows(job_.command)) {
      if (!isDefault)
        refuse(column->name, fmt::format("{} has no such option", nameOf(job_.command)));
      return;
    }
    if (job_.value(column->name) != nullptr) {
      if (!isDefault) refuse(column->name, "it is given twice");
      return;
    }
    addOption(*column, entry.value);
  }

  void addOption(const Column& column, const std::string& value) {
    if (column.kind == ColumnKind::kSwitch) {
      const std::string word = toLowerAscii(value);
      const bool isOn = word == "yes" || word == "true" || word == "1";
      if (!isOn && word != "no" && word != "false" && word != "0") {
        refuse(column.name, fmt::format("yes or no was expected, not {}", value));
      }
      // One that is off has to keep a default from switching it on, and goes later.
      job_.options.push_back({&column, isOn ? "" : "no"});
    } else if (column.isPath()) {
      const std::string path = standardizePath(value);
      const bool isAbsolute = path.starts_with('/');
      job_.options.push_back(
          {&column, isAbsolute ? path : standardizePath(joinPath(table_.folder, path))});
    } else {
      job_.options.push_back({&column, value});
    }
  }

  void requireOptions() {
    std::erase_if(job_.options, [](const JobOption& each) {
      return each.column->kind == ColumnKind::kSwitch && !each.value.empty();
    });
    const bool signs = job_.command == CommandKind::kWrap || job_.command == CommandKind::kSign;
    require("in");
    if (job_.value("outBundle") == nullptr) require("out");
    if (signs) require("Cert");
    if (signs) require("Profile");
    if (job_.command == CommandKind::kSdkPrep) require("entitlements");
  }
  void require(const char* column) {
    if (job_.value(column) == nullptr) refuse(column, "it is missing");
  }

  void finishNames() {
    const std::string output = job_.paths(ColumnKind::kOutput).front();
    const std::string* name = ownValue("name");
    job_.name = name != nullptr ? *name : lastPathComponent(output);
    job_.key = fmt::format("{}-{}", plainName(deletingPathExtension(lastPathComponent(output))),
                           hexLower(digestOf(DigestAlgorithm::kSha256, output)).substr(0, 16));
  }

  // The command line takes each text once, and none that is a word of its own.
  void checkWords() {
    std::map<std::string, const char*> seen;
    for (const JobOption& option : job_.options) {
      // Outputs are made under other paths.
      const ColumnKind kind = option.column->kind;
      if (kind == ColumnKind::kSwitch || kind == ColumnKind::kOutput) continue;
      if (isReserved(job_.command, option.value)) {
        refuse(option.column->name,
               fmt::format("the command line has a meaning of its own for {}", option.value));
      }
      const auto [other, isNew] = seen.emplace(option.value, option.column->name);
      if (isNew) continue;
      refuse(option.column->name, fmt::format("the command line takes each text once, and {} is {} "
                                              "as well",
                                              other->second, option.value));
    }
  }

  const Table& table_;
  Faults& faults_;
  const TableRow* row_ = nullptr;
  Job job_;
};

}  // namespace

const std::string* Job::value(std::string_view column) const {
  const auto found = std::ranges::find_if(
      options, [&](const JobOption& each) { return each.column->name == column; });
  return found == options.end() ? nullptr : &found->value;
}

std::vector<std::string> Job::paths(ColumnKind kind) const {
  std::vector<std::string> found;
  for (const JobOption& option : options) {
    if (option.column->kind == kind) found.push_back(option.value);
  }
  return found;
}

std::vector<Job> makeJobs(const Table& table, Faults* faults) {
  return JobMaker(table, faults).make();
}

}  // namespace tovrek::batch
