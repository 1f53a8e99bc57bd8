#include "host/installation.h"

#include <cstdlib>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {
namespace {

std::string administratorsFolder() {
  return joinPath(programFolder(), "local");
}

bool isOfPackage() {
  return isDirectory(administratorsFolder());
}

std::string stateFolder() {
  const char* named = std::getenv("XDG_STATE_HOME");
  // Relative ones do not count: they would be another folder in each working directory.
  return joinPath(named != nullptr && *named == '/' ? named : standardizePath("~/.local/state"),
                  "tovrek");
}

}  // namespace

std::string contentFolder() {
  const std::string local = joinPath(administratorsFolder(), "Data");
  return isDirectory(local) ? local : joinPath(programFolder(), "Data");
}

std::string defaultLogFile() {
  return isOfPackage() ? joinPath(stateFolder(), "Orvane.log")
                       : joinPath(programFolder(), "logs/Orvane.log");
}

bool makeDefaultLogFolder(ErrorText* error) {
  return !isOfPackage() || createDirectories(stateFolder(), error);
}

}  // namespace tovrek
