#include "programs/openssl/Openssl.h"

#include "host/process.h"
#include "launch/programs.h"
#include "programs/openssl/openssl_arguments.h"
#include "programs/openssl/subject_answer.h"

namespace tovrek::openssl {

int run(const Arguments& arguments, const Streams& streams) {
  if (const auto answer = subjectAnswer(arguments.words)) {
    streams.out(*answer);
    return 0;
  }
  const auto program = launch::findHostProgram("openssl");
  if (!program) {
    streams.error("openssl: not installed on this host (Debian package openssl)\n");
    return kNotStarted;
  }
  return launch::becomeProgram(*program, opensslArguments(arguments.words), streams);
}

}  // namespace tovrek::openssl
