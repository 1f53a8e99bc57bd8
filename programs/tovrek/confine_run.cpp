#include "programs/tovrek/confine_run.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/confinement.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "programs/tovrek/readable_places.h"

namespace tovrek::toolkit {
namespace {

// Modules for tokens are code of others, which may write wherever their tokens are kept.
bool environmentNamesToken() {
  constexpr const char* kVariables[] = {"TOVREK_PKCS11_MODULE", "PKCS11_PROVIDER_MODULE",
                                        "SOFTHSM2_CONF"};
  return std::ranges::any_of(kVariables, [](const char* name) { return std::getenv(name); });
}

// Where a file is made. One that lies in a folder which is still to be made needs the next that is
// there.
std::string folderFor(const std::string& file) {
  std::string folder = containingFolder(file);
  while (!isDirectory(folder) && folder != "." && folder != "/") folder = containingFolder(folder);
  return folder;
}

std::vector<std::string> writableFolders(const Request& request) {
  // Programs write to these, and a terminal may be asked for a password.
  std::vector<std::string> folders = {"/dev/null", "/dev/zero", "/dev/full", "/dev/tty"};
  if (const auto temporary = systemTemporaryFolder()) folders.push_back(*temporary);
  for (const auto& file : {request.outputFile, request.outputBundleFile, request.logFile}) {
    if (file && !file->empty()) folders.push_back(folderFor(*file));
  }
  const std::string input = request.inputFile.value_or("");
  if (equalsIgnoringCase(pathExtension(input), "app")) folders.push_back(input);
  return folders;
}

}  // namespace

void confineRun(const Request& request, const RunContext& context) {
  const WrapperLogger& log = context.loggers.commandLine;
  const bool told = std::getenv("TOVREK_CONFINE") != nullptr;
  if (environmentNamesToken()) {
    if (told) log.logDetailed("Confinement: off, as the environment names a token");
    return;
  }
  NeededPlaces places;
  if (!confinementIsOff()) {
    places = {writableFolders(request), readablePlaces(request, context)};
  }
  const Confinement confinement = confine(places);
  if (!told) return;
  switch (confinement) {
    case Confinement::kOn:
      return log.logDetailed(places.toRead ? "Confinement: on" : "Confinement: on, but of reading");
    case Confinement::kOff:
      return log.logDetailed("Confinement: off, as TOVREK_CONFINE says");
    case Confinement::kUnsupported:
      return log.logDetailed("Confinement: off, the kernel does not support it");
  }
}

}  // namespace tovrek::toolkit
