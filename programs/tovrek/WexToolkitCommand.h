// What the commands have in common: reading options by a table.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "converter/Request.h"
#include "host/ErrorText.h"
#include "programs/tovrek/options.h"

namespace tovrek {

class WexToolkitCommand {
 public:
  virtual ~WexToolkitCommand() = default;

  // Reads the command's options from `arguments` (command word in front) into
  // the request, the keychain at once, printing a trace line for most, and makes the command's own
  // checks. False with the reason in the slot, or when the help was asked for.
  bool validateParams(const std::vector<std::string>& arguments, ErrorText* error, Request& request,
                      PellRequest& keychain);
  // Whether "-help" was met and answered, which ends the run well.
  bool helpShown() const { return helpShown_; }

  // Whether the text is none of the command's options. Prints a note for each one that it is.
  bool CheckForMissingParamValue(std::string_view text) const;

  // What the command takes besides "-help", one row for each option.
  const OptionTable& options() const { return table_; }
  // The options' names. Some stand twice.
  const std::vector<std::string>& supportedParams() const { return supportedParams_; }
  void setSupportedParams(std::vector<std::string> names) { supportedParams_ = std::move(names); }

 protected:
  // Runs after the last option.
  using Finish = std::function<bool(Request& request, ErrorText* error)>;
  // `word` is the command word as messages spell it.
  WexToolkitCommand(std::string word, OptionTable table, std::string (*help)(), Finish finish);

  // The end of commands that change what an earlier one made.
  static bool markUpdate(Request& request, ErrorText*) { return request.isUpdate = true; }
  // An argument that is no option.
  virtual bool refuseUnknown(const std::string& argument, ErrorText* error);

 private:
  bool readOption(const std::vector<std::string>& arguments, size_t* next, OptionTarget& target);
  bool showHelp(const std::vector<std::string>& arguments, size_t next, ErrorText* error);

  std::string word_;
  OptionTable table_;
  std::string (*help_)();
  Finish finish_;
  std::vector<std::string> supportedParams_;
  bool helpShown_ = false;
};

}  // namespace tovrek
