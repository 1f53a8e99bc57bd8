// The link-layer address of this host.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "host/host_info.h"
#include "host/platform.h"

namespace tovrek {
namespace {

struct Interface {
  std::string name;
  unsigned index;
  unsigned flags;
  std::string address;
};

// Containers often have a loopback alone: any interface is better than none at all.
int rank(const Interface& candidate) {
  if (candidate.name == "en0") return 0;
  if ((candidate.flags & IFF_LOOPBACK) != 0) return 3;
  return (candidate.flags & IFF_UP) != 0 ? 1 : 2;
}

}  // namespace

std::optional<std::string> macAddress(ErrorText* error) {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) {
    fail(error, "sysctl mgmtInfoBase failure");
    return std::nullopt;
  }
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
  std::vector<Interface> found;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr) continue;
    const auto address = linkAddress(entry->ifa_addr);
    if (!address) continue;
    found.push_back({entry->ifa_name, ::if_nametoindex(entry->ifa_name), entry->ifa_flags,
                     fmt::format("{:02X}", fmt::join(*address, ":"))});
  }
  const auto best = std::min_element(found.begin(), found.end(), [](const auto& a, const auto& b) {
    return std::pair(rank(a), a.index) < std::pair(rank(b), b.index);
  });
  if (best != found.end()) return best->address;
  // A host whose only interface hides its address still has an interface.
  if (list != nullptr) return "00:00:00:00:00:00";
  fail(error, "if_nametoindex failure");
  return std::nullopt;
}

}  // namespace tovrek
