#include "programs/codesign/Codesign.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::codesign::run, tovrek::codesign::kRules);
}
