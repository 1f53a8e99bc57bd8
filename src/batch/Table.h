// Tables of jobs as their files have them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "batch/Fault.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

struct Entry {
  std::string column, value;
};

struct TableRow {
  size_t number = 0;           // counted from 1, rows that cannot be meant among them
  size_t line = 0;             // where it begins in the file, counted from 1
  std::vector<Entry> entries;  // in the file's order; without those that hold nothing
};

struct Table {
  std::string folder;           // that relative paths are from; absolute
  size_t headerLine = 0;        // 0 in JSON lines
  std::vector<Entry> header;    // a CSV or TSV table's columns, without values
  std::vector<Entry> defaults;  // for all rows that have nothing in that column
  std::vector<TableRow> rows;
  size_t rowCount = 0;  // with those that cannot be meant
};

// The most rows, and the most bytes, of a table.
inline constexpr size_t kMostRows = 1'000'000;
inline constexpr size_t kLargestTable = size_t{256} << 20;

// Reads a table: JSON lines by the name (.jsonl, .ndjson, .json), else tabs (.tsv) or commas
// (.csv); under any other name what the first line looks like. A CSV without any comma in its
// header is parted by semicolons. None, with the reason, for a file that cannot be read; rows that
// cannot be meant are told in `faults` and left out.
std::optional<Table> readTable(const std::string& path, Faults* faults, ErrorText* error);
// The same for what such a file holds.
std::optional<Table> parseTable(std::string_view contents, const std::string& path, Faults* faults,
                                ErrorText* error);

// A cell of a CSV file, in quotation marks where it needs them.
std::string csvCell(std::string_view text);

}  // namespace tovrek::batch
