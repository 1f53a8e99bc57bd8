// Makes a well-formed XML document of a damaged one: from standard input to standard output.
#pragma once

#include "host/program.h"

namespace tovrek::mend_xml {

// 0 when the document was written; 1, with the reason, when nothing can be made of the input; 2 for
// a command line with anything in it.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::mend_xml
