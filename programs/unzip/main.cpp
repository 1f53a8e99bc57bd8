#include "host/program.h"
#include "programs/unzip/Unzip.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::unzip::run, tovrek::unzip::kRules);
}
