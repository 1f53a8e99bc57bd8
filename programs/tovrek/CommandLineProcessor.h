// From the program's arguments to a filled request.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "context/PellRequest.h"
#include "converter/Request.h"
#include "host/ErrorText.h"
#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

class CommandLineProcessor {
 public:
  // `keychain` gets the choice of one as soon as its option is met. It must outlive the processor.
  explicit CommandLineProcessor(PellRequest& keychain) : keychain_(keychain) {}

  // Checks the host's tools, matches the command word (the first argument) and lets its command
  // read the rest. None with the reason in the slot; none without one when the help was printed, or
  // when the missing tools were only reported to the system log.
  std::optional<Request> processCommandLine(const std::vector<std::string>& arguments,
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
  bool runCommand(const std::vector<std::string>& arguments, ErrorText* error);

  PellRequest& keychain_;
  Request request_;                // being filled
  std::set<CommandWord> words_{};  // met so far; more than one is a mistake
  bool helpShown_ = false;
};

}  // namespace tovrek
