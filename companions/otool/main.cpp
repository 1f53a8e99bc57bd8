// Load commands and Objective-C metadata of Mach-O files, as llvm-objdump lists them.
#include <fmt/format.h>

#include <string_view>

#include "companions/launch/programs.h"
#include "companions/otool/otool_arguments.h"
#include "log/SystemLog.h"

namespace {

constexpr std::string_view kUsage =
    "Usage: otool [-arch name] -l | -o | -h | -f | -L | -D  file...\n"
    "    -l  load commands        -o  Objective-C metadata    -h  Mach-O header\n"
    "    -f  universal header     -L  libraries used          -D  a library's own name\n";

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words == std::vector<std::string>{"--help"}) {
    tovrek::printOut(kUsage);
    return 0;
  }
  tovrek::ErrorText error;
  const auto arguments = tovrek::otoolArguments(words, &error);
  if (!arguments) {
    tovrek::printError(fmt::format("error: otool: {}\n{}", error.text(), kUsage));
    return 1;
  }
  const auto program = tovrek::launch::findLlvmTool("objdump");
  if (!program) {
    tovrek::printError("error: otool: llvm-objdump is not installed (Debian package llvm)\n");
    return 127;
  }
  return tovrek::launch::becomeProgram(*program, *arguments);
}
