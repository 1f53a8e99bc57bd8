// Makes one system call, or one request for memory, fail in a program or in any process that comes
// of it (see usage()).
#include <errno.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "AllocationWatch.h"
#include "CallWatcher.h"
#include "Order.h"
#include "ProcessTree.h"
#include "call_filter.h"

namespace tovrek::faults {
namespace {

constexpr int kNotRun = 125;

// In the child: becomes the command. Comes back only when that cannot be.
void becomeCommand(const Order& order, int socket) {
  if (receiveDescriptor(socket) != -1) return;
  for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) ::signal(number, SIG_DFL);
  for (const int descriptor : order.closed) ::close(descriptor);
  if (order.fileSize) {
    const rlimit limit{*order.fileSize, *order.fileSize};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return;
  }
  std::vector<char*> words;
  for (const std::string& word : order.command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const int listener = installFilter(order.groups);
  if (listener < 0 || !sendDescriptor(socket, listener)) return;
  ::execv(words[0], words.data());
}

// One line, whatever stands in a path.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, '?');
  return text;
}

std::string endOf(const CallWatcher& watcher, const ProcessTree& tree) {
  const int status = tree.mainStatus();
  if (watcher.timedOut()) return "timeout";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit " + std::to_string(WEXITSTATUS(status));
}

bool writeReport(const Order& order, const CallWatcher& watcher, const AllocationWatch& allocations,
                 const ProcessTree& tree) {
  std::ofstream file(order.report);
  allocations.report(file);
  for (const auto& [group, count] : watcher.counts()) {
    file << "count " << group->name << ' ' << count << '\n';
  }
  if (const Hit& hit = watcher.hit(); hit.call != nullptr) {
    file << "hit " << hit.group->name << ' ' << hit.call->name << "\npath " << oneLine(hit.subject)
         << "\nprogram " << oneLine(hit.program) << "\narguments " << oneLine(hit.arguments)
         << '\n';
  }
  for (const Crash& crash : tree.crashes()) {
    file << "crash " << crash.signal << ' ' << oneLine(crash.program) << '\n';
  }
  file << "ended " << endOf(watcher, tree) << '\n';
  file.close();
  return !file.fail();
}

int complain(const std::string& what) {
  std::fprintf(stderr, "supervisor: %s\n", what.c_str());
  return kNotRun;
}

// Lets the child go on, which is traced by now, and takes what it sends: the kernel's questions.
int startCommand(int socket) {
  const char go = 0;
  return ::send(socket, &go, 1, MSG_NOSIGNAL) == 1 ? receiveDescriptor(socket) : -1;
}

int supervise(const Order& order) {
  std::array<int, 2> sockets{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
    return complain(std::strerror(errno));
  }
  AllocationWatch allocations;
  if (!allocations.start(order)) return complain(std::string("memory: ") + std::strerror(errno));
  const pid_t child = ::fork();
  if (child < 0) return complain(std::strerror(errno));
  if (child == 0) {
    ::close(sockets[0]);
    becomeCommand(order, sockets[1]);
    ::_exit(complain(order.command[0] + ": " + std::strerror(errno)));
  }
  ::close(sockets[1]);
  // Who interrupts this program wants the end of all of it, which its own end brings about.
  ProcessTree tree;
  if (!tree.adopt(child)) return complain(std::string("tracing: ") + std::strerror(errno));
  const int listener = startCommand(sockets[0]);
  if (listener < 0) return complain("the calls of the program cannot be watched");
  CallWatcher watcher(order, tree, listener);
  std::thread watching([&] { watcher.run(); });
  tree.waitForAll();
  watching.join();
  if (!writeReport(order, watcher, allocations, tree)) {
    return complain(order.report + " cannot be written");
  }
  const int status = tree.mainStatus();
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace
}  // namespace tovrek::faults

int main(int count, char** words) {
  std::string problem;
  const auto order = tovrek::faults::readOrder(count, words, &problem);
  if (order) return tovrek::faults::supervise(*order);
  std::fprintf(stderr, "supervisor: %s\n\n%s", problem.c_str(), tovrek::faults::usage().c_str());
  return tovrek::faults::kNotRun;
}
