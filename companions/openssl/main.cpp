// The host's openssl, asked for names in the form that Apple's prints.
#include "companions/launch/programs.h"
#include "companions/openssl/openssl_arguments.h"
#include "log/SystemLog.h"

int main(int argc, char** argv) {
  const auto program = tovrek::launch::findHostProgram("openssl");
  if (!program) {
    tovrek::printError("openssl: not installed on this host (Debian package openssl)\n");
    return 127;
  }
  return tovrek::launch::becomeProgram(*program, tovrek::opensslArguments({argv + 1, argv + argc}));
}
