#include "batch/columns.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "host/paths.h"

namespace tovrek::batch {
namespace {

struct CommandName {
  CommandKind kind;
  const char* word;
  char letter;
};
constexpr std::array<CommandName, 4> kCommands = {{{CommandKind::kWrap, "Wrap", 'W'},
                                                   {CommandKind::kSign, "Sign", 'S'},
                                                   {CommandKind::kSetInfo, "SetInfo", 'I'},
                                                   {CommandKind::kSdkPrep, "SdkPrep", 'P'}}};

constexpr Column kColumns[] = {
    {"in", ColumnKind::kInput, "WSIP"},
    {"out", ColumnKind::kOutput, "WSIP"},
    {"outBundle", ColumnKind::kOutput, "W"},
    {"Cert", ColumnKind::kText, "WS"},
    {"Profile", ColumnKind::kInput, "WS"},
    {"logWriteLevel", ColumnKind::kText, "WSIP"},
    {"logDisplayLevel", ColumnKind::kText, "WSIP"},
    {"appDesc", ColumnKind::kText, "WIP"},
    {"bundleID", ColumnKind::kText, "W"},
    {"appName", ColumnKind::kText, "W"},
    {"upgrade", ColumnKind::kSwitch, "WS"},
    {"minPlatform", ColumnKind::kText, "WIP"},
    {"maxPlatform", ColumnKind::kText, "WIP"},
    {"excludedDevices", ColumnKind::kText, "WIP"},
    {"packageApp", ColumnKind::kSwitch, "W"},
    {"storeURL", ColumnKind::kText, "WIP"},
    {"appMode", ColumnKind::kText, "WP"},
    {"appType", ColumnKind::kText, "WP"},
    {"policyXML", ColumnKind::kInput, "WIP"},
    {"pell", ColumnKind::kSwitch, "W"},
    {"keychainPath", ColumnKind::kKeys, "W"},
    {"noStripExtensions", ColumnKind::kSwitch, "W"},
    {"useNetworkOnlyLib", ColumnKind::kSwitch, "W"},
    {"adalClientID", ColumnKind::kText, "WP"},
    {"adalNSGResource", ColumnKind::kText, "WP"},
    {"reSign", ColumnKind::kText, "S"},
    {"wexResign", ColumnKind::kText, "S"},
    {"embedBundle", ColumnKind::kInput, "I"},
    {"packageId", ColumnKind::kText, "P"},
    {"entitlements", ColumnKind::kInput, "P"},
    {"appIdPrefix", ColumnKind::kText, "P"},
};

const CommandName& row(CommandKind command) {
  return *std::ranges::find(kCommands, command, &CommandName::kind);
}

}  // namespace

const char* nameOf(CommandKind command) {
  return row(command).word;
}

std::optional<CommandKind> commandNamed(std::string_view word) {
  for (const CommandName& each : kCommands) {
    if (equalsIgnoringCase(each.word, word)) return each.kind;
  }
  return std::nullopt;
}

bool Column::knows(CommandKind command) const {
  return std::strchr(commands, row(command).letter) != nullptr;
}

std::span<const Column> columns() {
  return kColumns;
}

const Column* columnNamed(std::string_view name) {
  const auto found = std::ranges::find_if(
      kColumns, [&](const Column& each) { return equalsIgnoringCase(each.name, name); });
  return found == std::end(kColumns) ? nullptr : found;
}

bool isReserved(CommandKind command, std::string_view word) {
  if (commandNamed(word) || equalsIgnoringCase(word, "GetInfo")) return true;
  if (!word.starts_with('-')) return false;
  const std::string_view name = word.substr(1);
  const Column* column = columnNamed(name);
  return (column != nullptr && column->knows(command)) || equalsIgnoringCase(name, "help") ||
         equalsIgnoringCase(name, "logFile") || equalsIgnoringCase(name, "sdk");
}

}  // namespace tovrek::batch
