// What the supervisor is tried on: writes "main", "thread" and "child", each from there, thrice.
// Prints on standard error which writes failed, and why.
#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <thread>

namespace {

void complain(std::string_view who, int round) {
  const std::string line =
      std::string(who) + " " + std::to_string(round) + " errno " + std::to_string(errno) + "\n";
  if (::write(STDERR_FILENO, line.data(), line.size()) < 0) ::_exit(2);
}

void writeAs(std::string_view who, int round) {
  const std::string line = std::string(who) + "\n";
  if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) complain(who, round);
}

}  // namespace

int main() {
  for (int round = 1; round <= 3; ++round) {
    writeAs("main", round);
    std::thread([round] { writeAs("thread", round); }).join();
    const pid_t child = ::fork();
    if (child < 0) return 1;
    if (child == 0) {
      writeAs("child", round);
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
  }
  return 0;
}
