#include "call_filter.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <set>

namespace tovrek::faults {
namespace {

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "no numbers of system calls for this processor"
#endif

sock_filter statement(int code, size_t value) {
  return {static_cast<uint16_t>(code), 0, 0, static_cast<uint32_t>(value)};
}

sock_filter skipUnlessEqual(uint32_t value, uint8_t skipped) {
  return {BPF_JMP | BPF_JEQ | BPF_K, 0, skipped, value};
}

std::vector<sock_filter> filterProgram(const std::vector<const CallGroup*>& groups) {
  std::set<long> numbers;
  for (const CallGroup* group : groups) {
    for (const Call& call : group->calls) numbers.insert(call.number);
  }
  const sock_filter allow = statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  std::vector<sock_filter> program = {
      statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, kArchitecture},
      allow,
      statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const long number : numbers) {
    program.push_back(skipUnlessEqual(static_cast<uint32_t>(number), 1));
    program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  program.push_back(allow);
  return program;
}

// A message of one byte with room for a descriptor.
struct DescriptorMessage {
  DescriptorMessage() {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = room.data();
    header.msg_controllen = room.size();
  }
  char byte = 0;
  iovec part{&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room{};
  msghdr header{};
};

}  // namespace

int installFilter(const std::vector<const CallGroup*>& groups) {
  std::vector<sock_filter> program = filterProgram(groups);
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  // A call that waits for its answer must not be restarted, and counted twice, for a signal.
  constexpr unsigned kFlags =
      SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
  return static_cast<int>(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, kFlags, &filter));
}

bool sendDescriptor(int socket, int descriptor) {
  DescriptorMessage message;
  cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  return ::sendmsg(socket, &message.header, 0) == 1;
}

int receiveDescriptor(int socket) {
  DescriptorMessage message;
  if (::recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC) != 1) return -1;
  const cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
  if (control == nullptr || control->cmsg_type != SCM_RIGHTS) return -1;
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
  return descriptor;
}

}  // namespace tovrek::faults
