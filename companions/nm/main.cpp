// Symbols of Mach-O files, as llvm-nm lists them.
#include "companions/launch/programs.h"
#include "companions/nm/nm_arguments.h"
#include "log/SystemLog.h"

int main(int argc, char** argv) {
  const auto program = tovrek::launch::findLlvmTool("nm");
  if (!program) {
    tovrek::printError("error: nm: llvm-nm is not installed (Debian package llvm)\n");
    return 127;
  }
  return tovrek::launch::becomeProgram(*program, tovrek::nmArguments({argv + 1, argv + argc}));
}
