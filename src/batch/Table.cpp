#include "batch/Table.h"

#include <fmt/format.h>

#include <algorithm>

#include "batch/json_object.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/utf8.h"

namespace tovrek::batch {
namespace {

constexpr std::string_view kDefault = "#default";
constexpr size_t kMostColumns = 200;

enum class TableForm { kCommas, kTabs, kJson };

// The line of the file that begins at `at`, without its end; moves `at` behind it.
std::string_view takeLine(std::string_view contents, size_t* at) {
  const size_t end = std::min(contents.find('\n', *at), contents.size());
  std::string_view line = contents.substr(*at, end - *at);
  *at = std::min(end + 1, contents.size());
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

TableForm formOf(std::string_view contents, const std::string& path) {
  const std::string extension = toLowerAscii(pathExtension(path));
  if (extension == "jsonl" || extension == "ndjson" || extension == "json") return TableForm::kJson;
  if (extension == "tsv") return TableForm::kTabs;
  if (extension == "csv") return TableForm::kCommas;
  for (size_t at = 0; at < contents.size();) {
    const std::string_view line = takeLine(contents, &at);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '{') return TableForm::kJson;
    return line.find('\t') != line.npos ? TableForm::kTabs : TableForm::kCommas;
  }
  return TableForm::kCommas;
}

class TableReader {
 public:
  TableReader(std::string_view contents, TableForm form, Faults* faults)
      : contents_(contents), form_(form), faults_(*faults) {
    if (contents_.starts_with("\xef\xbb\xbf")) contents_.remove_prefix(3);
  }

  bool read(Table* table, ErrorText* error) {
    while (at_ < contents_.size()) {
      if (table->rows.size() + badRows_ == kMostRows) {
        return fail(error, fmt::format("it has more than {} rows", kMostRows));
      }
      const size_t start = at_;
      ++line_;
      const std::string_view line = takeLine(contents_, &at_);
      if (trimmed(line).empty()) continue;
      if (line.front() == '#') {
        readComment(line, table);
      } else if (form_ == TableForm::kJson) {
        readJsonRow(line, table);
      } else {
        at_ = start;
        if (!readCells(table, error)) return false;
      }
    }
    table->rowCount = table->rows.size() + badRows_;
    return form_ == TableForm::kJson || table->headerLine != 0 || fail(error, "it has no header");
  }

 private:
  void refuse(size_t row, size_t line, std::string reason) {
    faults_.push_back({row, line, "", std::move(reason)});
  }

  void readComment(std::string_view line, Table* table) {
    if (!line.starts_with(kDefault)) return;
    std::string_view rest = line.substr(kDefault.size());
    if (!rest.empty() && rest.front() != ' ' && rest.front() != '\t') return;
    const size_t sign = rest.find('=');
    const std::string column = trimmed(rest.substr(0, sign));
    if (sign == rest.npos || column.empty()) {
      refuse(0, line_, "a default has the form \"#default option=value\"");
      return;
    }
    const bool isKnown = std::ranges::any_of(table->defaults, [&](const Entry& each) {
      return equalsIgnoringCase(each.column, column);
    });
    if (isKnown) return refuse(0, line_, fmt::format("{} has a default already", column));
    table->defaults.push_back({column, trimmed(rest.substr(sign + 1))});
  }

  void readJsonRow(std::string_view line, Table* table) {
    ErrorText reason;
    const auto members = readJsonObject(line, &reason);
    const size_t number = table->rows.size() + badRows_ + 1;
    if (!members) {
      ++badRows_;
      return refuse(number, line_, reason.text());
    }
    TableRow row{number, line_, {}};
    for (const auto& [name, value] : *members) {
      if (value && !value->empty()) row.entries.push_back({name, *value});
    }
    table->rows.push_back(std::move(row));
  }

  // One row of cells, which may go on over several lines inside quotation marks.
  bool readCells(Table* table, ErrorText* error) {
    const size_t firstLine = line_;
    if (table->headerLine == 0) chooseSeparator();
    std::vector<std::string> cells;
    if (!splitCells(&cells)) {
      return fail(error,
                  fmt::format("line {}: a quotation mark is not closed, or something follows "
                              "the closing one",
                              firstLine));
    }
    if (cells.size() > kMostColumns) {
      return fail(error, fmt::format("line {}: more than {} columns", firstLine, kMostColumns));
    }
    if (table->headerLine == 0) {
      table->headerLine = firstLine;
      for (const std::string& cell : cells) table->header.push_back({trimmed(cell), ""});
    } else {
      addRow(firstLine, std::move(cells), table);
    }
    return true;
  }

  void addRow(size_t firstLine, std::vector<std::string> cells, Table* table) {
    const size_t columns = table->header.size();
    const size_t number = table->rows.size() + badRows_ + 1;
    if (cells.size() != columns) {
      ++badRows_;
      refuse(number, firstLine,
             fmt::format("it has {} cells, the header has {}", cells.size(), columns));
      return;
    }
    TableRow row{number, firstLine, {}};
    for (size_t i = 0; i < columns; ++i) {
      if (!cells[i].empty()) row.entries.push_back({table->header[i].column, std::move(cells[i])});
    }
    table->rows.push_back(std::move(row));
  }

  // Spreadsheets of some languages part cells by semicolons.
  void chooseSeparator() {
    if (form_ == TableForm::kTabs) {
      separator_ = '\t';
      return;
    }
    size_t at = at_;
    const std::string_view line = takeLine(contents_, &at);
    if (line.find(',') == line.npos && line.find(';') != line.npos) separator_ = ';';
  }

  // Leaves `at_` behind the row.
  bool splitCells(std::vector<std::string>* cells) {
    for (;;) {
      std::string cell;
      if (at_ < contents_.size() && contents_[at_] == '"') {
        if (!takeQuoted(&cell)) return false;
      } else {
        const size_t end =
            std::min(contents_.find_first_of(std::string{separator_, '\n'}, at_), contents_.size());
        cell = contents_.substr(at_, end - at_);
        at_ = end;
        if (cell.ends_with('\r') && !atSeparator()) cell.pop_back();
      }
      cells->push_back(std::move(cell));
      if (!atSeparator()) break;
      ++at_;
    }
    if (contents_.substr(at_).starts_with('\r')) ++at_;
    if (at_ == contents_.size()) return true;
    return contents_[at_++] == '\n';
  }

  bool atSeparator() const { return at_ < contents_.size() && contents_[at_] == separator_; }

  bool takeQuoted(std::string* cell) {
    for (++at_; at_ < contents_.size(); ++at_) {
      const char c = contents_[at_];
      if (c == '"' && contents_.substr(at_ + 1).starts_with('"')) {
        ++at_;
      } else if (c == '"') {
        return ++at_, true;
      }
      if (c == '\n') ++line_;
      cell->push_back(c);
    }
    return false;
  }

  std::string_view contents_;
  TableForm form_;
  Faults& faults_;
  size_t at_ = 0, line_ = 0, badRows_ = 0;
  char separator_ = ',';
};

}  // namespace

std::string Fault::text() const {
  std::string place;
  if (row != 0) place = fmt::format("row {}", row);
  if (line != 0) place += row != 0 ? fmt::format(" (line {})", line) : fmt::format("line {}", line);
  if (!column.empty()) place += (place.empty() ? "" : ", ") + column;
  return place.empty() ? reason : place + ": " + reason;
}

std::optional<Table> parseTable(std::string_view contents, const std::string& path, Faults* faults,
                                ErrorText* error) {
  if (!isUtf8(contents)) {
    fail(error, "it is not UTF-8");
    return std::nullopt;
  }
  if (contents.find('\0') != contents.npos) {
    fail(error, "it holds a NUL byte");
    return std::nullopt;
  }
  Table table;
  if (!TableReader(contents, formOf(contents, path), faults).read(&table, error)) {
    return std::nullopt;
  }
  return table;
}

std::optional<Table> readTable(const std::string& path, Faults* faults, ErrorText* error) {
  const auto status = statusOf(path);
  if (!status || status->kind != ItemKind::kFile) {
    fail(error, status ? "it is no regular file" : "there is no such file");
    return std::nullopt;
  }
  if (status->size > kLargestTable) {
    fail(error, fmt::format("it has more than {} bytes", kLargestTable));
    return std::nullopt;
  }
  std::string contents;
  if (!readFile(path, &contents, error)) return std::nullopt;
  auto table = parseTable(contents, path, faults, error);
  if (!table) return std::nullopt;
  const auto folder = realPath(containingFolder(path));
  if (!folder) {
    fail(error, "its folder cannot be found");
    return std::nullopt;
  }
  table->folder = *folder;
  return table;
}

std::string csvCell(std::string_view text) {
  const bool isPlain = text.find_first_of(",;\"\t\r\n#") == text.npos && trimmed(text) == text;
  if (isPlain) return std::string(text);
  std::string cell = "\"";
  for (const char c : text) cell.append(c == '"' ? 2 : 1, c);
  return cell + '"';
}

}  // namespace tovrek::batch
