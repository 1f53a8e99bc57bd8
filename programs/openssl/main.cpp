// The host's openssl, asked for names in the form that Apple's prints.
#include "launch/programs.h"
#include "log/SystemLog.h"
#include "programs/openssl/openssl_arguments.h"
#include "programs/openssl/subject_answer.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (const auto answer = tovrek::subjectAnswer(arguments)) {
    tovrek::printOut(*answer);
    return 0;
  }
  const auto program = tovrek::launch::findHostProgram("openssl");
  if (!program) {
    tovrek::printError("openssl: not installed on this host (Debian package openssl)\n");
    return 127;
  }
  return tovrek::launch::becomeProgram(*program, tovrek::opensslArguments(arguments));
}
