#include "host/program.h"
#include "programs/xcode-select/XcodeSelect.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::xcode_select::run);
}
