#include "programs/otool/Otool.h"

int main(int argc, char** argv) {
  return tovrek::runOtool({argv + 1, argv + argc});
}
