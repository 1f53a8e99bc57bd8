// Insertion of load commands into the room before an image's first section.
//
// Each insertion plans first (nothing is changed, everything can fail) and then applies the plan
// in the one order in which the file's bytes may change.
#pragma once

#include <string>
#include <string_view>

#include "engine/InsertionPlan.h"
#include "host/EditedFile.h"
#include "log/WrapperLogger.h"
#include "macho/Image.h"

namespace tovrek::macho {

// Works on a thin file that is mapped for editing; `path` is for the log, which hears of data that
// is overwritten when `tellsOfRoom`. All must outlive this.
// Failures are thrown as MachORebuildErrors; the image is not validated otherwise.
template <class P>
class Insertion {
 public:
  // What is told of besides the outcome.
  struct Telling {
    bool place = true;  // on standard error: where the library went
    bool room = false;  // in the log: first data that is overwritten
  };
  Insertion(EditedFile& file, const std::string& path, const WrapperLogger& logger, Telling telling)
      : file_(file), path_(path), logger_(logger), telling_(telling) {}

  void addDylibs(const LibraryPaths& paths);

 private:
  void addOrvaneDylibLoadCommand(std::string_view dylib);
  void addOrvaneLoggerDylibLoadCommand(std::string_view dylib);
  void insertCommand(const Image<P>& image, std::string_view caller, const InsertionPlan& plan,
                     std::string_view dylib);
  void writeCommand(const Image<P>& image, std::string_view caller, const InsertionPlan& plan,
                    std::string_view dylib);
  void moveEncryptionBehindCommands();
  void flush() const;
  [[noreturn]] void failToWrite(const ErrorText& reason) const;
  Image<P> read() const { return Image<P>(EditableByteView(file_.bytes())); }

  EditedFile& file_;
  const std::string& path_;
  const WrapperLogger& logger_;
  const Telling telling_;
};

}  // namespace tovrek::macho
