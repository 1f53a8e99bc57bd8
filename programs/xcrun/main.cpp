#include "host/program.h"
#include "programs/xcrun/Xcrun.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::xcrun::run, {.cleansUpOnSignals = true});
}
