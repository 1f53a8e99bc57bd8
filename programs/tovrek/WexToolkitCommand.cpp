#include "programs/tovrek/WexToolkitCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/paths.h"
#include "log/SystemLog.h"

namespace tovrek {

WexToolkitCommand::WexToolkitCommand(std::string word, OptionTable table, std::string (*help)(),
                                     Finish finish)
    : word_(std::move(word)),
      table_(std::move(table)),
      help_(help),
      finish_(std::move(finish)),
      supportedParams_({"-in", "-out", "-logFile", "-logWriteLevel", "-logDisplayLevel", "-help"}) {
  // Names of the common list come again here, and are then reported twice.
  for (const Option& option : table_) supportedParams_.push_back(option.name);
}

bool WexToolkitCommand::CheckForMissingParamValue(std::string_view text) const {
  bool isValue = true;
  for (const std::string& name : supportedParams_) {
    if (!equalsIgnoringCase(name, text)) continue;
    printOut(fmt::format("Found dup {}", text));
    isValue = false;
  }
  return isValue;
}

bool WexToolkitCommand::validateParams(const std::vector<std::string>& arguments, ErrorText* error,
                                       Request& request, PellRequest& keychain) {
  OptionTarget target{request, keychain, error};
  for (size_t next = 1; next < arguments.size();) {
    if (!readOption(arguments, &next, target)) return false;
  }
  return finish_(request, error);
}

// Reads the option at `*next` with its value and moves `*next` behind them.
bool WexToolkitCommand::readOption(const std::vector<std::string>& arguments, size_t* next,
                                   OptionTarget& target) {
  const std::string& argument = arguments[(*next)++];
  if (equalsIgnoringCase(argument, "-help")) return showHelp(arguments, *next, target.error);

  const auto option = std::ranges::find_if(
      table_, [&](const Option& row) { return equalsIgnoringCase(row.name, argument); });
  if (option == table_.end()) return refuseUnknown(argument, target.error);

  if (option->meet && !option->meet(target)) return false;
  if (!option->take) return true;
  if (*next == arguments.size() || !CheckForMissingParamValue(arguments[*next])) {
    return failMissingValue(target.error, argument);
  }
  return option->take(target, arguments[(*next)++]);
}

bool WexToolkitCommand::showHelp(const std::vector<std::string>& arguments, size_t next,
                                 ErrorText* error) {
  if (next < arguments.size() && !CheckForMissingParamValue(arguments[next])) {
    return failMissingValue(error, "-help");
  }
  systemLog("\n" + help_(), LineBreaks::kKept);
  helpShown_ = true;
  return false;
}

bool WexToolkitCommand::refuseUnknown(const std::string& argument, ErrorText* error) {
  return fail(error, fmt::format("Command line option {} is unknown with \"{}\" command.", argument,
                                 word_));
}

}  // namespace tovrek
