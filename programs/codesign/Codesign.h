// The program codesign, as a library.
#pragma once

#include <string>
#include <string_view>

#include "host/program.h"
#include "programs/codesign/Options.h"

namespace tovrek::codesign {

// The program's exit statuses.
enum ExitStatus { kSuccess = 0, kFailure = 1, kUsageError = 2, kUnsatisfied = 3 };

// Runs the program; answers its exit status.
int run(const Arguments& arguments, const Streams& streams);

// The operations, each on one path.
int signPath(const std::string& path, const Options& options, const Streams& streams);
int displayPath(const std::string& path, const Options& options, const Streams& streams);
int verifyPath(const std::string& path, const Options& options, const Streams& streams);
int removeFrom(const std::string& path, const Options& options, const Streams& streams);

// Prints "PATH: TEXT"; answers kFailure.
int failPath(const std::string& path, std::string_view text, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "codesign", .cleansUpOnSignals = true};

}  // namespace tovrek::codesign
