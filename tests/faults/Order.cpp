#include "Order.h"

#include <errno.h>
#include <signal.h>

#include <charconv>
#include <map>
#include <sstream>
#include <string_view>

namespace tovrek::faults {
namespace {

const std::map<std::string_view, int> kFailures = {
    {"EACCES", EACCES}, {"EAGAIN", EAGAIN}, {"EBUSY", EBUSY},   {"EDQUOT", EDQUOT},
    {"EINTR", EINTR},   {"EIO", EIO},       {"EMFILE", EMFILE}, {"ENFILE", ENFILE},
    {"ENOENT", ENOENT}, {"ENOMEM", ENOMEM}, {"ENOSPC", ENOSPC}, {"ENOSYS", ENOSYS},
    {"EPERM", EPERM},   {"EROFS", EROFS},   {"EXDEV", EXDEV}};

const std::map<std::string_view, int> kSignals = {
    {"HUP", SIGHUP}, {"INT", SIGINT}, {"TERM", SIGTERM}};

template <typename Number>
bool readNumber(std::string_view text, Number* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

bool choose(const std::map<std::string_view, int>& names, std::string_view name, int* value) {
  const auto found = names.find(name);
  if (found == names.end()) return false;
  *value = found->second;
  return true;
}

bool addGroup(Order* order, std::string_view name) {
  if (name == "all") {
    for (const CallGroup& group : callGroups()) order->groups.push_back(&group);
    return true;
  }
  const CallGroup* const group = findGroup(name);
  if (group != nullptr) order->groups.push_back(group);
  return group != nullptr;
}

bool takeOption(Order* order, std::string_view option, std::string_view value) {
  if (option == "--calls") return addGroup(order, value);
  if (option == "--hit") return readNumber(value, &order->hit);
  if (option == "--errno") return choose(kFailures, value, &order->failure);
  if (option == "--seconds") return readNumber(value, &order->seconds) && order->seconds > 0;
  if (option == "--close") return readNumber(value, &order->closed.emplace_back());
  if (option == "--file-size") return readNumber(value, &order->fileSize.emplace());
  if (option == "--allocation" || option == "--exhaustion") {
    order->lasting = option == "--exhaustion";
    return readNumber(value, &order->allocation.emplace());
  }
  if (option == "--report") {
    order->report = value;
    return true;
  }
  if (option == "--signal") {
    order->action = value == "KILL" ? Action::kKill : Action::kSignal;
    return value == "KILL" || choose(kSignals, value, &order->signal);
  }
  return false;
}

}  // namespace

std::optional<Order> readOrder(int count, char** words, std::string* problem) {
  Order order;
  int at = 1;
  for (; at < count && std::string_view(words[at]) != "--"; at += 2) {
    const std::string value = at + 1 < count ? words[at + 1] : "";
    if (!takeOption(&order, words[at], value)) {
      *problem = std::string("not understood: ") + words[at] + " " + value;
      return std::nullopt;
    }
  }
  for (++at; at < count; ++at) order.command.emplace_back(words[at]);
  if (order.command.empty()) *problem = "there is no command after --";
  if (order.report.empty()) *problem = "--report is missing";
  if (order.hit != 0 && order.groups.empty()) *problem = "--hit without --calls";
  return problem->empty() ? std::optional(order) : std::nullopt;
}

std::string usage() {
  std::ostringstream text;
  text << "supervisor --report FILE [OPTION VALUE]... -- PROGRAM [ARGUMENT]...\n\n"
          "Runs a program and makes one system call fail, of it or of any process it starts.\n\n"
          "  --calls GROUP    calls that are counted; again for more groups, \"all\" for all\n"
          "  --hit N          the Nth of them fails; 0 (the default) only counts\n"
          "  --errno NAME     with this error; each group has a usual one\n"
          "  --signal NAME    no failure: the program gets HUP, INT or TERM at the Nth call,\n"
          "                   or (KILL) all its processes are killed\n"
          "  --seconds N      kills all processes after that time (20)\n"
          "  --close FD       starts the program without this descriptor\n"
          "  --file-size N    lets it write no file beyond N bytes\n"
          "  --allocation N   the Nth request for memory fails, of all that Tovrek's programs\n"
          "                   make; 0 only counts\n"
          "  --exhaustion N   so do all later ones of the same process\n\n"
          "Groups:";
  for (const CallGroup& group : callGroups()) text << ' ' << group.name;
  text << '\n';
  return text.str();
}

}  // namespace tovrek::faults
