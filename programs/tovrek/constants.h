// Fixed texts of the front end.
#pragma once

namespace tovrek {

inline constexpr char kToolTitle[] = "Command Line Interface for WEX Toolkit";
inline constexpr char kEnvironment[] = "Test";
inline constexpr char kSeparatorLine[] = "------------------------------";
// Where the toolkit is taken to be when the program's own place is unknown.
inline constexpr char kFallbackToolkitFolder[] = "/Applications/Orvane/WexToolkit";

}  // namespace tovrek
