#include "programs/nm/Nm.h"

int main(int argc, char** argv) {
  return tovrek::runNm({argv + 1, argv + argc});
}
