// The toolkit: one command, run.
#pragma once

#include "host/Streams.h"
#include "host/program.h"

namespace tovrek::toolkit {

// Exit statuses. Unpacking that fails ends with success, as scripts of users expect.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitBadInput = -1;
inline constexpr int kExitConversionFailed = -2;

// Answers the exit status. What the steps of a conversion print goes to the streams of the process.
int run(const Arguments& arguments, const Streams& streams);

// What is said where there is no memory to make up a text.
inline constexpr char kOutOfMemory[] = "\nThe run was given up: out of memory\n";
// What is said of a failure that nobody foresaw.
int reportUncaught(const char* reason, const Streams& streams);

}  // namespace tovrek::toolkit
