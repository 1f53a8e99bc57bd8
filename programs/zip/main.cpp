#include "host/program.h"
#include "programs/zip/Zip.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::zip::run, tovrek::zip::kRules);
}
