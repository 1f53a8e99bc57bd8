#include "host/program.h"
#include "programs/otool/Otool.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::otool::run, tovrek::otool::kRules);
}
