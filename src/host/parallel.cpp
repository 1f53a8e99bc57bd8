#include "host/parallel.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <vector>

#include "host/running_child.h"

namespace tovrek {
namespace {

constexpr size_t kMostThreads = 8;

}  // namespace

std::optional<Helper> startHelper(std::function<void()> work) {
  const SignalsBlocked blocked;  // what a thread starts with is what its starter has
  try {
    return Helper(std::move(work));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

void forEachPart(size_t count, size_t grain, const std::function<void(size_t, size_t)>& work) {
  std::atomic<size_t> next{0};
  const auto takeParts = [&] {
    for (size_t begin = next.fetch_add(grain); begin < count; begin = next.fetch_add(grain)) {
      work(begin, std::min(count, begin + grain));
    }
  };
  const size_t parts = count / grain + (count % grain != 0 ? 1 : 0);
  // Asking reads files, each time.
  static const size_t processors = std::max<size_t>(1, std::thread::hardware_concurrency());
  std::vector<Helper> helpers;
  for (size_t i = 1; i < std::min({parts, processors, kMostThreads}); ++i) {
    auto helper = startHelper(takeParts);
    if (!helper) break;  // the ones that run do it all
    helpers.push_back(std::move(*helper));
  }
  takeParts();
  for (Helper& helper : helpers) helper.join();
}

}  // namespace tovrek
