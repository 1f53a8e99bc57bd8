#include "host/memory.h"
#include "host/program.h"
#include "programs/zip/Zip.h"

int main(int argc, char** argv) {
  tovrek::keepFreedMemory();
  return tovrek::runProgram(argc, argv, tovrek::zip::run,
                            {.name = "zip", .cleansUpOnSignals = true});
}
