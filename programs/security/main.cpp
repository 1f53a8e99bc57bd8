#include "programs/security/security.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::security::run, tovrek::security::kRules);
}
