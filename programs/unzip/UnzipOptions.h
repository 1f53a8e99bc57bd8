// The command line of unzip.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::unzip {

struct UnzipOptions {
  enum class Action { kExtract, kList, kListVerbosely, kNames, kTest, kPipe, kUsage, kVersion };
  enum class Existing { kAsk, kReplace, kKeep };

  Action action = Action::kExtract;
  Existing existing = Existing::kAsk;
  int quiet = 0;
  bool junkPaths = false;
  std::string destination{};  // empty: the working folder, and names are shown as they are
  std::string archive{};
  std::vector<std::string> members{};  // patterns; empty means all
  std::vector<std::string> excluded{};

  // False, with a text for the user, for options that this program does not have.
  bool read(const std::vector<std::string>& arguments, ErrorText* error);
  // Whether the lists choose the entry of that name.
  bool selects(const std::string& name) const;
  // Whether a table of the entries is all that is asked for.
  bool onlyLists() const { return action == Action::kList || action == Action::kListVerbosely; }

 private:
  bool readFlags(const std::string& flags, bool* wantsDestination, bool* excluding,
                 ErrorText* error);
  bool readFlag(char flag);
};

}  // namespace tovrek::unzip
