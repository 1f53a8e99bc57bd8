#pragma once

#include <sys/types.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tovrek::faults {

/// The program that a process runs, by its path; empty when the process is gone.
std::string programOf(pid_t process);

/// A process that was ended by a signal it brought upon itself.
struct Crash {
  std::string program;
  int signal;
};

/// A process and all that come of it. Each is traced, so that none can get out of sight: how each
/// of them ends is seen, and with this program all of them end.
///
/// All but killAll() belongs to the thread that calls adopt().
class ProcessTree {
 public:
  /// Takes the first process, which must not have started others. False with errno.
  bool adopt(pid_t main);

  /// Waits until all processes have ended.
  void waitForAll();

  /// Kills all processes; waitForAll() then ends soon. Any thread may call it.
  void killAll();

  /// The first process.
  pid_t main() const { return main_; }

  /// How the first process ended, as of waitpid().
  int mainStatus() const { return mainStatus_; }

  /// All that crashed, the first process too.
  const std::vector<Crash>& crashes() const { return crashes_; }

 private:
  void noteStop(pid_t process, int status);
  void noteEnd(pid_t process, int status);

  pid_t main_ = 0;
  int mainStatus_ = 0;
  std::map<pid_t, std::string> failing_;  // got a signal of a crash; the program of each
  std::vector<Crash> crashes_;
  std::mutex mutex_;
  std::set<pid_t> running_;  // under mutex_
  bool killing_ = false;     // under mutex_
};

}  // namespace tovrek::faults
