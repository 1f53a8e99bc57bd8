#include "companions/signing/parallel.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace tovrek::signing {
namespace {

constexpr size_t kMostThreads = 8;

}  // namespace

void forEachPart(size_t count, size_t grain, const std::function<void(size_t, size_t)>& work) {
  std::atomic<size_t> next{0};
  const auto takeParts = [&] {
    for (size_t begin = next.fetch_add(grain); begin < count; begin = next.fetch_add(grain)) {
      work(begin, std::min(count, begin + grain));
    }
  };
  const size_t parts = count / grain + (count % grain != 0 ? 1 : 0);
  const size_t processors = std::max<size_t>(1, std::thread::hardware_concurrency());
  std::vector<std::thread> helpers;
  for (size_t i = 1; i < std::min({parts, processors, kMostThreads}); ++i) {
    try {
      helpers.emplace_back(takeParts);
    } catch (const std::system_error&) {
      break;  // no more threads to be had: the ones that run do it all
    }
  }
  takeParts();
  for (std::thread& helper : helpers) helper.join();
}

}  // namespace tovrek::signing
