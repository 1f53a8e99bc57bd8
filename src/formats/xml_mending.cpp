// libxml2 has the recovery, and loads so much that it would double the start of every program that
// links it.
#include "formats/xml_mending.h"

#include "formats/xml_limits.h"
#include "host/HostRoot.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/process.h"

namespace tovrek {
namespace {

constexpr char kProgram[] = "mend-xml";

// A host root of the user's own need not have it.
std::string program() {
  const std::string chosen = HostRoot::companion(kProgram);
  return chosen.empty() ? joinPath(programFolder(), std::string("host/usr/bin/") + kProgram)
                        : chosen;
}

}  // namespace

std::optional<std::string> mendedXml(std::string_view bytes, ErrorText* error) {
  if (!excessOfXml(bytes).empty()) return std::nullopt;  // the program would refuse it too
  Command command{.argv = {program()}};
  command.input = bytes;
  command.standardError = StandardError::kCapture;
  Outcome outcome = runQuietly(command);
  if (outcome.status == 0 && !outcome.signalled) return std::move(outcome.output);
  if (error != nullptr && error->isSet() && !outcome.notStarted.empty()) {
    error->set(error->text() + " (mend-xml: " + outcome.notStarted + ")");
  }
  return std::nullopt;
}

}  // namespace tovrek
