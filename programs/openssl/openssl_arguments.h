// Where the host's openssl needs other arguments than Apple's to give the same output.
#pragma once

#include <string>
#include <vector>

namespace tovrek::openssl {

// `arguments` come without the program's name. "x509 ... -subject" gets "-nameopt compat" unless
// a form is asked for: a subject then reads "/OU=X/CN=Y" and not "OU = X, CN = Y". All others are
// answered as they are.
std::vector<std::string> opensslArguments(std::vector<std::string> arguments);

}  // namespace tovrek::openssl
