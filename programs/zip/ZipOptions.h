// The command line of zip.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::zip {

struct ZipOptions {
  enum class Action { kAdd, kDelete, kUsage, kVersion };

  Action action = Action::kAdd;
  int level = 6;
  bool quiet = false;
  bool recurse = false;
  bool storeLinks = false;
  bool junkPaths = false;
  bool withoutFolders = false;
  bool withoutExtra = false;
  std::string archive{};  // with ".zip" added when it had no ending
  std::vector<std::string> operands{};
  std::vector<std::string> excluded{};
  std::vector<std::string> included{};
  std::string flagsAsGiven{};  // for the hint of "Nothing to do"

  // False, with a text for the user, for options that this program does not have.
  bool read(const std::vector<std::string>& arguments, ErrorText* error);
  // Whether the lists let the entry of that name in.
  bool admits(const std::string& name) const;

 private:
  bool readLong(const std::string& name, std::vector<std::string>** list, ErrorText* error);
  bool readFlags(const std::string& flags, std::vector<std::string>** list, ErrorText* error);
  bool readFlag(char flag);
};

}  // namespace tovrek::zip
