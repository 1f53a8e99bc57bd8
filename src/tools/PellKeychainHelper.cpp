#include "tools/PellKeychainHelper.h"

#include "log/SystemLog.h"
#include "tools/tool_run.h"

namespace tovrek {

void PellKeychainHelper::displayKeychain(const PellRequest& request) {
  if (!request.pellRequestFlag()) return;
  Command command;
  command.argv = {"/usr/bin/security", "list-keychains"};
  systemLog(runQuietly(command).output, LineBreaks::kKept);
}

}  // namespace tovrek
