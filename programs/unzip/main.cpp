#include <string>
#include <vector>

#include "programs/unzip/Unzip.h"

int main(int argc, char** argv) {
  return tovrek::unzip::runUnzipProgram({argv + (argc > 0 ? 1 : 0), argv + argc});
}
