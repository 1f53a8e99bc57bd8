// The command line of codesign.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::codesign {

enum class Operation { kNone, kSign, kVerify, kDisplay, kRemove };

struct Options {
  Operation operation = Operation::kNone;
  std::vector<std::string> paths;
  int verbosity = 0;
  bool force = false;
  std::string identity;  // of kSign; "-" for ad-hoc
  std::optional<std::string> keychain;
  std::optional<std::string> identifier;
  std::string prefix;
  // Signing: a file to read. Display: where to write, "-" for standard output, ":" in front for
  // the bare property list.
  std::optional<std::string> entitlements;
  // Signing: a requirement set. Display: where to write.
  std::optional<std::string> requirements;
  // Verifying: a requirement that the code is to satisfy.
  std::optional<std::string> testRequirement;
  std::optional<std::string> resourceRules;
  std::optional<std::string> flags;
  std::optional<std::string> preserve;
  std::vector<std::string> digests;
  std::optional<std::string> pageSize;
  std::optional<std::string> extractCertificates;  // prefix of the files to write
  std::optional<std::string> architecture;
  std::optional<std::string> runtimeVersion;
  bool xml = false;
  bool strict = false;
  bool timestamp = false;  // asked for one, from whichever authority
  bool dryRun = false;     // signing: change nothing
  bool goOn = false;       // after a path that failed
  bool help = false;

  // Options and paths may stand in any order. False, with the reason, for what the program does
  // not know or that does not fit together.
  static bool parse(const std::vector<std::string>& arguments, Options* out, ErrorText* error);
};

// What the program prints for a command line that it does not understand.
extern const char* const kUsage;
// What follows it for --help.
extern const char* const kHelp;

}  // namespace tovrek::codesign
