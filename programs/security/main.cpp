#include "programs/security/security.h"

int main(int argc, char** argv) {
  return tovrek::security::runSecurity({argv + 1, argv + argc});
}
