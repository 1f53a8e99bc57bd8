#include <string>
#include <vector>

#include "programs/lipo/Lipo.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + (argc > 0 ? argc : 1));
  return tovrek::runLipo(argc > 0 ? argv[0] : "lipo", arguments);
}
