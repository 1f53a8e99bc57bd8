#include "tools/PellKeychainHelper.h"

#include "context/PellRequest.h"
#include "log/SystemLog.h"
#include "tools/tool_run.h"

namespace tovrek {

void PellKeychainHelper::displayKeychain() {
  if (!PellRequest::sharedInstance().pellRequestFlag()) return;
  Command command;
  command.argv = {"/usr/bin/security", "list-keychains"};
  systemLog(runQuietly(command).output);
}

}  // namespace tovrek
