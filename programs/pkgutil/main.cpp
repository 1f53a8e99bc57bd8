#include "host/program.h"
#include "programs/pkgutil/Pkgutil.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::pkgutil::run, {.name = "pkgutil"});
}
