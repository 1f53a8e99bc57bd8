#include "CallWatcher.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <sstream>
#include <tuple>
#include <utility>

namespace tovrek::faults {
namespace {

using Clock = std::chrono::steady_clock;

std::string procPath(pid_t process, const std::string& name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

std::string readStart(const std::string& path, off_t offset) {
  std::array<char, PATH_MAX> text;
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return "";
  // A text may end with the page it stands in, beyond which nothing can be read.
  const ssize_t size = ::pread(file, text.data(), text.size(), offset);
  ::close(file);
  return size < 0 ? "" : std::string(text.data(), static_cast<size_t>(size));
}

std::string argumentsOf(pid_t process) {
  std::string words = readStart(procPath(process, "cmdline"), 0);
  std::replace(words.begin(), words.end(), '\0', ' ');
  return words;
}

std::string subjectOf(const seccomp_notif& question, const Call& call) {
  const pid_t process = static_cast<pid_t>(question.pid);
  const uint64_t value = question.data.args[call.argument];
  if (call.subject == Subject::kPath) {
    const std::string text = readStart(procPath(process, "mem"), static_cast<off_t>(value));
    return text.substr(0, text.find('\0'));
  }
  if (call.subject == Subject::kNone) return "";
  std::array<char, PATH_MAX> path;
  const std::string link = procPath(process, "fd/" + std::to_string(static_cast<int>(value)));
  const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
  return size < 0 ? "" : std::string(path.data(), static_cast<size_t>(size));
}

// Where the dynamic loader lies in the memory of a process: its begin and end.
std::pair<uint64_t, uint64_t> placeOfLoader(pid_t process) {
  std::ifstream maps(procPath(process, "maps"));
  std::pair<uint64_t, uint64_t> place{0, 0};
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/ld-linux") == std::string::npos) continue;
    uint64_t begin = 0, end = 0;
    char dash = 0;
    std::istringstream fields(line);
    fields >> std::hex >> begin >> dash >> end;
    place = {place.first == 0 ? begin : place.first, end};
  }
  return place;
}

bool isExec(long number) {
  return number == SYS_execve || number == SYS_execveat;
}

}  // namespace

CallWatcher::CallWatcher(const Order& order, ProcessTree& tree, int listener)
    : order_(order), tree_(tree), listener_(listener) {
  for (const CallGroup* group : order.groups) {
    counts_[group] = 0;
    for (const Call& call : group->calls) calls_.insert({call.number, {group, &call}});
  }
}

void CallWatcher::run() {
  const auto end = Clock::now() + std::chrono::seconds(order_.seconds);
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) {
      timedOut_ = true;
      tree_.killAll();
      return;
    }
    pollfd watched{listener_, POLLIN, 0};
    if (::poll(&watched, 1, static_cast<int>(left.count()) + 1) <= 0) continue;
    if ((watched.revents & POLLIN) != 0) {
      answer();
    } else {
      return;
    }
  }
}

void CallWatcher::answer() {
  // A newer kernel may write more than today's fields.
  union {
    seccomp_notif question;
    std::array<char, 512> room{};
  };
  // The process that asked may be gone by now.
  if (::ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &question) != 0) return;
  seccomp_notif_resp reply{};
  reply.id = question.id;
  reply.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  Watched watched{};
  if (isChosen(question, &watched)) strike(question, watched, &reply);
  ::ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &reply);
}

CallWatcher::Loader& CallWatcher::loaderOf(const seccomp_notif& question) {
  const auto [found, isNew] = loaders_.try_emplace(question.pid);
  Loader& loader = found->second;
  if (isNew) {
    std::tie(loader.begin, loader.end) = placeOfLoader(static_cast<pid_t>(question.pid));
  }
  return loader;
}

// What the call counts as; nullptr for one that does not count.
const CallWatcher::Watched* CallWatcher::watchedCall(const seccomp_notif& question) {
  Loader& loader = loaderOf(question);
  const uint64_t place = question.data.instruction_pointer;
  const bool isOfLoader = place >= loader.begin && place < loader.end;
  if (isOfLoader && loader.counted) return nullptr;
  const auto [begin, end] = calls_.equal_range(question.data.nr);
  const auto found = std::find_if(begin, end, [&](const auto& entry) {
    const auto& [group, call] = entry.second;
    return group->ofLoader == isOfLoader &&
           (call->applies == nullptr || call->applies(question.data));
  });
  if (found == end) return nullptr;
  loader.counted |= isOfLoader;
  return &found->second;
}

bool CallWatcher::isChosen(const seccomp_notif& question, Watched* watched) {
  const Watched* const call = watchedCall(question);
  if (isExec(question.data.nr)) {
    loaders_.erase(question.pid);  // another program may stand there next
    // The first of all is the start of the command, made by this program.
    if (!std::exchange(started_, true)) return false;
  }
  if (call == nullptr) return false;
  *watched = *call;
  ++counts_[watched->group];
  return ++total_ == order_.hit;
}

void CallWatcher::strike(const seccomp_notif& question, const Watched& watched,
                         seccomp_notif_resp* reply) {
  const pid_t process = static_cast<pid_t>(question.pid);
  hit_ = {watched.group, watched.call, subjectOf(question, *watched.call), programOf(process),
          argumentsOf(process)};
  if (order_.action == Action::kKill) return tree_.killAll();
  if (order_.action == Action::kSignal) {
    ::kill(tree_.main(), order_.signal);
    return;
  }
  if (question.data.nr == SYS_close) replaceDescriptor(question);
  reply->flags = 0;
  // brk() has no error: it tells an end that is not the one asked for.
  if (question.data.nr == SYS_brk) return;
  reply->error = -(order_.failure != 0 ? order_.failure : watched.group->failure);
}

// A close() that fails has closed all the same. Nothing but a close of its own can do that here, so
// the file's place is given to another one.
void CallWatcher::replaceDescriptor(const seccomp_notif& question) {
  const int descriptor = static_cast<int>(question.data.args[0]);
  if (hit_.subject.empty()) return;
  const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  seccomp_notif_addfd replacement{};
  replacement.id = question.id;
  replacement.flags = SECCOMP_ADDFD_FLAG_SETFD;
  replacement.srcfd = static_cast<uint32_t>(other);
  replacement.newfd = static_cast<uint32_t>(descriptor);
  replacement.newfd_flags = O_CLOEXEC;
  ::ioctl(listener_, SECCOMP_IOCTL_NOTIF_ADDFD, &replacement);
  ::close(other);
}

}  // namespace tovrek::faults
