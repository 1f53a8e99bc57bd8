#include "programs/zip/ZipOptions.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "archive/patterns.h"
#include "host/paths.h"

namespace tovrek::zip {
namespace {

constexpr std::array<std::pair<std::string_view, char>, 7> kLongNames = {{
    {"quiet", 'q'},
    {"recurse-paths", 'r'},
    {"symlinks", 'y'},
    {"junk-paths", 'j'},
    {"no-dir-entries", 'D'},
    {"no-extra", 'X'},
    {"delete", 'd'},
}};

constexpr std::array<std::pair<char, bool ZipOptions::*>, 6> kSwitches = {{
    {'q', &ZipOptions::quiet},
    {'r', &ZipOptions::recurse},
    {'y', &ZipOptions::storeLinks},
    {'j', &ZipOptions::junkPaths},
    {'D', &ZipOptions::withoutFolders},
    {'X', &ZipOptions::withoutExtra},
}};

constexpr std::array<std::pair<char, ZipOptions::Action>, 3> kActions = {{
    {'d', ZipOptions::Action::kDelete},
    {'h', ZipOptions::Action::kUsage},
    {'v', ZipOptions::Action::kVersion},
}};

}  // namespace

bool ZipOptions::read(const std::vector<std::string>& arguments, ErrorText* error) {
  std::vector<std::string>* list = nullptr;  // where names go after -x or -i
  bool onlyNames = false;
  for (const std::string& argument : arguments) {
    if (!onlyNames && argument == "--") {
      onlyNames = true;
      list = nullptr;
    } else if (!onlyNames && argument.starts_with("--")) {
      if (!readLong(argument.substr(2), &list, error)) return false;
    } else if (!onlyNames && argument.size() > 1 && argument.front() == '-') {
      list = nullptr;
      if (!readFlags(argument.substr(1), &list, error)) return false;
      if (archive.empty()) flagsAsGiven += argument + " ";
    } else if (list != nullptr) {
      if (argument == "@") {
        list = nullptr;
      } else {
        list->push_back(argument);
      }
    } else if (archive.empty()) {
      archive = argument;
    } else {
      operands.push_back(argument);
    }
    if (action == Action::kUsage || action == Action::kVersion) return true;
  }
  if (archive.empty()) {
    action = Action::kUsage;
  } else if (archive == "-") {
    return fail(error, "an archive on standard output is not supported");
  } else if (lastPathComponent(archive).find('.') == std::string::npos) {
    archive += ".zip";
  }
  return true;
}

bool ZipOptions::readLong(const std::string& name, std::vector<std::string>** list,
                          ErrorText* error) {
  *list = nullptr;
  if (name == "exclude" || name == "include") {
    *list = name == "exclude" ? &excluded : &included;
    return true;
  }
  if (name == "help" || name == "version") {
    action = name == "help" ? Action::kUsage : Action::kVersion;
    return true;
  }
  for (const auto& [longName, flag] : kLongNames) {
    if (name == longName) return readFlag(flag);
  }
  return fail(error, fmt::format("long option '{}' not supported", name));
}

bool ZipOptions::readFlags(const std::string& flags, std::vector<std::string>** list,
                           ErrorText* error) {
  for (size_t i = 0; i < flags.size(); ++i) {
    const char flag = flags[i];
    if (flag == 'x' || flag == 'i') {
      *list = flag == 'x' ? &excluded : &included;
      if (i + 1 < flags.size()) (*list)->push_back(flags.substr(i + 1));
      return true;
    }
    if (!readFlag(flag)) {
      return fail(error, fmt::format("short option '{}' not supported", flag));
    }
  }
  return true;
}

bool ZipOptions::readFlag(char flag) {
  for (const auto& [letter, chosen] : kSwitches) {
    if (flag == letter) return this->*chosen = true;
  }
  for (const auto& [letter, chosen] : kActions) {
    if (flag != letter) continue;
    action = chosen;
    return true;
  }
  if (flag < '0' || flag > '9') return false;
  level = flag - '0';
  return true;
}

bool ZipOptions::admits(const std::string& name) const {
  return (included.empty() || tovrek::archive::matchesAny(included, name)) &&
         !tovrek::archive::matchesAny(excluded, name);
}

}  // namespace tovrek::zip
