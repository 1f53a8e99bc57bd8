// Which rules of a run differ from the built-in ones.
#pragma once

#include <string>

#include "host/limits.h"

namespace tovrek {

// What becomes of an app that a device would refuse, once it is signed.
enum class ResultCheck {
  kNone,
  kWarns,   // each reason is a warning
  kStrict,  // the run fails and writes nothing
};

// Read once at start and passed down as a value. Everything off: the built-in rules.
struct Settings {
  bool modernImages = false;          // accept what today's linkers and strippers write
  bool strictHeaderRoom = false;      // never insert over the first bytes behind the commands
  bool resignNested = false;          // Sign also signs frameworks and extensions
  bool resignWrapped = false;         // Sign takes an .ipa that is wrapped already
  bool keepPlistLimits = false;       // Wrap leaves limits alone that no option gives
  bool refreshOnResign = false;       // signing a .wex anew renews its manifest
  bool keepExtensionsOnSign = false;  // Sign keeps PlugIns and Watch
  bool renameExtensions = false;      // a new identifier of the app goes on into nested ones
  bool failUnpacking = false;         // an input that cannot be unpacked fails the run
  ResultCheck verifyResult = ResultCheck::kNone;
  std::string profilesFolder;  // of profiles for nested bundles; empty: nested bundles as ever
  Limits limits;               // of what inputs may hold

  // Whether the file names these settings: only then the log tells what they would have changed.
  bool namesModernImages = false;
  bool namesStrictHeaderRoom = false;
  bool namesResignWrapped = false;
};

}  // namespace tovrek
