// The host's openssl, asked for names in the form that Apple's prints.
#pragma once

#include "host/program.h"

namespace tovrek::openssl {

// Answers itself what it can, else becomes the host's program. The exit status.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "openssl"};

}  // namespace tovrek::openssl
