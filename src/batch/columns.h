// The columns of a table: the options of the toolkit's commands.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tovrek::batch {

enum class CommandKind { kWrap, kSign, kSetInfo, kSdkPrep };

// The command's word on a command line.
const char* nameOf(CommandKind command);
// By its word, in any case; none for other words.
std::optional<CommandKind> commandNamed(std::string_view word);

enum class ColumnKind {
  kText,
  kSwitch,  // an option without a value
  kInput,   // the path of a file that is read
  kOutput,  // the path of a file that is made
  kKeys,    // the path of a keychain, which is neither copied nor compared
};

struct Column {
  const char* name;  // the option's, without its hyphen
  ColumnKind kind;
  const char* commands;  // a letter for each that knows it, see knows()

  bool isPath() const { return kind != ColumnKind::kText && kind != ColumnKind::kSwitch; }
  bool knows(CommandKind command) const;
};

// All of them. `command` and `name` are columns of Batch's own and not among them, nor is
// `logFile`: each row has its own log.
std::span<const Column> columns();
// By its name, in any case; null for what no command knows.
const Column* columnNamed(std::string_view name);

// Whether the word, in any case, is one that a command line of this command could not have as a
// value: a command's, or an option's.
bool isReserved(CommandKind command, std::string_view word);

}  // namespace tovrek::batch
