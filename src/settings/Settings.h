// Which rules of a run differ from the built-in ones.
#pragma once

namespace tovrek {

// Read once at start and passed down as a value. Everything off: the built-in rules.
struct Settings {
  bool modernImages = false;          // accept what today's linkers and strippers write
  bool strictHeaderRoom = false;      // never insert over the first bytes behind the commands
  bool resignNested = false;          // Sign also signs frameworks and extensions
  bool resignWrapped = false;         // Sign takes an .ipa that is wrapped already
  bool keepPlistLimits = false;       // Wrap leaves limits alone that no option gives
  bool refreshOnResign = false;       // signing a .wex anew renews its manifest
  bool keepExtensionsOnSign = false;  // Sign keeps PlugIns and Watch
  bool failUnpacking = false;         // an input that cannot be unpacked fails the run

  // Whether the file names these settings: only then the log tells what they would have changed.
  bool namesModernImages = false;
  bool namesStrictHeaderRoom = false;
  bool namesResignWrapped = false;
};

}  // namespace tovrek
