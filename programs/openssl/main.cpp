#include "host/program.h"
#include "programs/openssl/Openssl.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::openssl::run, tovrek::openssl::kRules);
}
