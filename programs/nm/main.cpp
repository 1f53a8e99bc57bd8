#include "host/program.h"
#include "programs/nm/Nm.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::nm::run, tovrek::nm::kRules);
}
