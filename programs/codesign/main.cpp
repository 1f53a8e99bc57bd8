#include "host/signals.h"
#include "log/SystemLog.h"
#include "programs/codesign/Codesign.h"

int main(int argc, char** argv) {
  tovrek::installSignalHandlers();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return tovrek::codesign::run(arguments, {tovrek::printOut, tovrek::printError});
}
