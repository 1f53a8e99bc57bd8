#include "host/program.h"
#include "programs/lipo/Lipo.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::lipo::run, tovrek::lipo::kRules);
}
