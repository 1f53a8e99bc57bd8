// What packages say about the tool that made them.
#pragma once

namespace tovrek {

inline constexpr char kToolVersion[] = "20.5.0";
inline constexpr char kToolsBuildNumber[] = "0";

}  // namespace tovrek
