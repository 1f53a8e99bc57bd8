// The program codesign, as a library.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/codesign/Options.h"

namespace tovrek::codesign {

// The program's exit statuses.
enum ExitStatus { kSuccess = 0, kFailure = 1, kUsageError = 2, kUnsatisfied = 3 };

// Where the program's two streams go.
struct Streams {
  std::function<void(std::string_view)> out;
  std::function<void(std::string_view)> error;
};

// Runs the program with `arguments` (without its name); answers its exit status.
int run(const std::vector<std::string>& arguments, const Streams& streams);

// The operations, each on one path.
int signPath(const std::string& path, const Options& options, const Streams& streams);
int displayPath(const std::string& path, const Options& options, const Streams& streams);
int verifyPath(const std::string& path, const Options& options, const Streams& streams);
int removeFrom(const std::string& path, const Options& options, const Streams& streams);

// Prints "PATH: TEXT"; answers kFailure.
int failPath(const std::string& path, std::string_view text, const Streams& streams);

}  // namespace tovrek::codesign
