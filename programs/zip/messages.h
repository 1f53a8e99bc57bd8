// What zip prints besides the entries.
#pragma once

#include <string_view>

#include "host/Streams.h"
#include "programs/zip/ZipOptions.h"

namespace tovrek::zip {

// Errors go to standard output too. Options and streams must outlive this.
class Messages {
 public:
  Messages(const ZipOptions& options, const Streams& streams)
      : options_(options), streams_(streams) {}

  // A line about an entry, and a warning; not for those who asked for quiet.
  void tell(std::string_view line) const;
  void warn(std::string_view text) const;
  // A warning for everybody, on standard error.
  void complain(std::string_view text) const;
  // Prints the error, with the system's reason where there is one, and gives `status`.
  int failWith(int status, std::string_view text, std::string_view reason = {}) const;
  int failNothingToDo() const;

 private:
  const ZipOptions& options_;
  const Streams& streams_;
};

}  // namespace tovrek::zip
