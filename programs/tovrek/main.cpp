#include <exception>
#include <string>
#include <vector>

#include "host/signals.h"
#include "log/SystemLog.h"
#include "programs/tovrek/run_toolkit.h"

int main(int argc, char** argv) {
  tovrek::installSignalHandlers();
  try {
    return tovrek::runToolkit(std::vector<std::string>(argv, argv + argc));
  } catch (const std::exception& failure) {
    tovrek::printError(std::string("\nThe run was given up: ") + failure.what() + "\n");
  } catch (...) {
    tovrek::printError("\nThe run was given up for an unknown reason\n");
  }
  return tovrek::kExitConversionFailed;
}
