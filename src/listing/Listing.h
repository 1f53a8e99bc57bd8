// The frame of a program that lists what object files hold.
#pragma once

#include <string>
#include <string_view>

#include "host/Streams.h"
#include "host/program.h"
#include "listing/ListingOptions.h"
#include "listing/Output.h"
#include "macho/ObjectFile.h"

namespace tovrek::listing {

// Goes through the files and their chosen slices. A complaint goes to standard error, behind what
// was listed before it, and makes the exit status 1; the other files are listed all the same.
class Listing {
 public:
  // All must outlive this.
  Listing(std::string_view program, const ListingOptions& options, const Streams& streams)
      : output_(streams.out), program_(program), options_(options), streams_(streams) {}
  virtual ~Listing() = default;
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  // Gives the exit status.
  int run();

 protected:
  // A file that is no Mach-O file.
  virtual void listOther(const macho::ObjectFile& file) = 0;
  // Called before the slices of a file.
  virtual void beginFile(const macho::ObjectFile&) {}
  virtual void listSlice(const macho::ObjectFile& file, const macho::Slice& slice) = 0;

  void complain(const std::string& text);
  // Puts the text behind what was listed so far, on standard error.
  void warn(const std::string& text);

  Output output_;

 private:
  void list(const std::string& path);

  std::string_view program_;
  const ListingOptions& options_;
  const Streams& streams_;
  bool failed_ = false;
};

// Tells of arguments that make no sense, with the usage; gives the exit status.
int refuseUsage(std::string_view program, const std::string& reason, std::string_view usage,
                const Streams& streams);

// The whole of a program that lists: "--help", options, files. Gives the exit status.
template <class Options, class Lister>
int runListing(std::string_view program, std::string_view usage, const Arguments& arguments,
               const Streams& streams) {
  if (arguments.words == std::vector<std::string>{"--help"}) {
    streams.out(usage);
    return 0;
  }
  Options options;
  ErrorText error;
  if (!options.parse(arguments.words, &error)) {
    return refuseUsage(program, error.text(), usage, streams);
  }
  return Lister(options, streams).run();
}

}  // namespace tovrek::listing
