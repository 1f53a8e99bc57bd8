// A shortage that root meets as well.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

namespace tovrek::test {

// For the life of the object this process may open only `more` files besides those that are open.
class FewOpenFiles {
 public:
  explicit FewOpenFiles(rlim_t more) {
    const int next = ::dup(0);
    ::close(next);
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{static_cast<rlim_t>(next) + more, before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewOpenFiles() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  FewOpenFiles(const FewOpenFiles&) = delete;
  FewOpenFiles& operator=(const FewOpenFiles&) = delete;

 private:
  rlimit before_{};
};

}  // namespace tovrek::test
