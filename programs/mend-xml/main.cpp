#include "host/program.h"
#include "programs/mend-xml/MendXml.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::mend_xml::run, {.name = "mend-xml"});
}
