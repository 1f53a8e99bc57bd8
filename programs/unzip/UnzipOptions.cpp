#include "programs/unzip/UnzipOptions.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "archive/patterns.h"

namespace tovrek::unzip {
bool UnzipOptions::read(const std::vector<std::string>& arguments, ErrorText* error) {
  bool wantsDestination = false;
  bool excluding = false;
  bool onlyNames = false;
  for (const std::string& argument : arguments) {
    if (wantsDestination) {
      destination = argument;
      wantsDestination = excluding = false;
    } else if (argument == "--help" || argument == "-h" || argument == "-hh") {
      action = Action::kUsage;
      return true;
    } else if (argument == "--version") {
      action = Action::kVersion;
      return true;
    } else if (argument == "--" && !onlyNames) {
      onlyNames = true;
    } else if (argument.size() > 1 && argument.front() == '-' && !onlyNames) {
      if (!readFlags(argument.substr(1), &wantsDestination, &excluding, error)) return false;
    } else if (archive.empty()) {
      archive = argument;
    } else {
      (excluding ? excluded : members).push_back(argument);
    }
  }
  if (wantsDestination)
    return fail(error, "must specify directory to which to extract with -d option");
  if (archive.empty())
    action = action == Action::kListVerbosely ? Action::kVersion : Action::kUsage;
  return true;
}

bool UnzipOptions::readFlags(const std::string& flags, bool* wantsDestination, bool* excluding,
                             ErrorText* error) {
  if (flags == "Z1") {
    action = Action::kNames;
    return true;
  }
  for (size_t i = 0; i < flags.size(); ++i) {
    if (flags[i] == 'd') {
      destination = flags.substr(i + 1);
      *wantsDestination = destination.empty();
      return true;
    }
    if (flags[i] == 'x') {
      *excluding = true;
    } else if (!readFlag(flags[i])) {
      return fail(error, fmt::format("option -{} is not supported", flags[i]));
    }
  }
  return true;
}

bool UnzipOptions::readFlag(char flag) {
  constexpr std::array<std::pair<char, Action>, 4> kActions = {{
      {'l', Action::kList},
      {'v', Action::kListVerbosely},
      {'t', Action::kTest},
      {'p', Action::kPipe},
  }};
  for (const auto& [letter, chosen] : kActions) {
    if (flag != letter) continue;
    action = chosen;
    return true;
  }
  if (flag == 'q') {
    ++quiet;
  } else if (flag == 'j') {
    junkPaths = true;
  } else if (flag == 'o' || flag == 'n') {
    existing = flag == 'o' ? Existing::kReplace : Existing::kKeep;
  } else {
    return false;
  }
  return true;
}

bool UnzipOptions::selects(const std::string& name) const {
  return (members.empty() || tovrek::archive::matchesAny(members, name)) &&
         !tovrek::archive::matchesAny(excluded, name);
}

}  // namespace tovrek::unzip
