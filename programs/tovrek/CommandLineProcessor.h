// From the program's arguments to a filled record.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "params/AppConverterParam.h"
#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

class CommandLineProcessor {
 public:
  // Checks the host's tools, matches the command word (the first argument after the program's
  // name) and lets its command read the rest. The record stays the processor's. Null with the
  // reason in the slot; null without one when the help was printed, or when the missing tools
  // were only reported to the system log.
  AppConverterParam* processCommandLine(const std::vector<std::string>& arguments,
                                        ErrorText* error);
  // Whether the run is over because the help was asked for.
  bool helpShown() const { return helpShown_; }

  // The help of the command that was recognised, else the general usage.
  void printCommandUsage() const;
  static void printUsage();

  // Whether the text is a command word. "SdkPrep" does not count.
  static bool checkForCommandParam(std::string_view text);

 private:
  bool checkDeveloperTools(ErrorText* error);
  bool matchCommandWord(const std::vector<std::string>& arguments, ErrorText* error);
  bool checkArgument(const std::string& argument, bool isFirst, std::set<std::string>* seen,
                     ErrorText* error);
  int setMatchingFlag(std::string_view argument);
  bool runCommand(const std::vector<std::string>& arguments, ErrorText* error);
  bool checkRequiredArguments(ErrorText* error) const;
  bool checkSdkInput(ErrorText* error) const;

  std::unique_ptr<AppConverterParam> converterParamTemp_;  // being filled
  std::unique_ptr<AppConverterParam> converterParam_;      // accepted by a command
  bool helpShown_ = false;
};

}  // namespace tovrek
