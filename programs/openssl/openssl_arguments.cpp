#include "programs/openssl/openssl_arguments.h"

#include <algorithm>

namespace tovrek::openssl {

std::vector<std::string> opensslArguments(std::vector<std::string> arguments) {
  const auto has = [&](const char* one, const char* other) {
    return std::ranges::find(arguments, one) != arguments.end() ||
           std::ranges::find(arguments, other) != arguments.end();
  };
  const bool showsSubject =
      !arguments.empty() && arguments.front() == "x509" && has("-subject", "--subject");
  if (showsSubject && !has("-nameopt", "--nameopt")) {
    arguments.insert(arguments.begin() + 1, {"-nameopt", "compat"});
  }
  return arguments;
}

}  // namespace tovrek::openssl
