#include <string>
#include <vector>

#include "companions/zip/Zip.h"
#include "host/signals.h"

int main(int argc, char** argv) {
  tovrek::installSignalHandlers();
  return tovrek::zip::runZipProgram({argv + (argc > 0 ? 1 : 0), argv + argc});
}
