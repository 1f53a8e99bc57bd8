// The folder that stands in for the host's own system folders where the host lacks Apple's
// programs.
#pragma once

#include <string>

namespace tovrek {

// The host root is $TOVREK_HOST_ROOT when set, else "host" beside the program when that folder
// exists, else none. With none every path stands for itself. Nothing is cached: the environment
// is asked on each use, so a test can set its own root at any time.
class HostRoot {
 public:
  // The host root's folder, or empty when there is none.
  static std::string folder();
  // For an absolute system path: the item below the host root when there is one, or when that
  // cannot be found out, else `path`.
  static std::string resolve(const std::string& path);
  // Whether an item stands at resolve(path).
  static bool exists(const std::string& path);
  // PATH for children: <host root>/usr/bin first.
  static std::string searchPath();
  // Whether PATH can name the host root at all: a colon in its path would end the name there.
  static bool canBeInSearchPath();
  // The program <host root>/usr/bin/<name>, or empty when there is none.
  static std::string companion(const std::string& name);
};

}  // namespace tovrek
