#include "archive/PieceInflater.h"

#include <zlib.h>

#include <algorithm>

namespace tovrek::archive {
namespace {

constexpr size_t kOutputSize = 256 << 10;
constexpr size_t kMostInput = size_t{1} << 30;  // the library counts in 32 bits

}  // namespace

struct PieceInflater::State {
  State() {
    constexpr int kRawDeflate = -MAX_WBITS;
    usable = ::inflateInit2(&stream, kRawDeflate) == Z_OK && !output.bytes().empty();
  }
  ~State() { ::inflateEnd(&stream); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  z_stream stream{};
  Buffer output{kOutputSize};
  bool usable = false;
  bool ended = false;
};

PieceInflater::PieceInflater() : state_(std::make_unique<State>()) {}
PieceInflater::~PieceInflater() = default;

bool PieceInflater::hasEnded() const {
  return state_->ended;
}

bool PieceInflater::feed(Bytes packed, const std::function<bool(Bytes piece)>& use) {
  z_stream& stream = state_->stream;
  // With a full output there may be more to come of input that is used up.
  for (bool isFull = false; !packed.empty() || (isFull && !state_->ended);) {
    if (!state_->usable || state_->ended) return false;
    const size_t given = std::min(packed.size(), kMostInput);
    // The library does not write through its input pointer.
    stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(packed.data()));
    stream.avail_in = static_cast<uInt>(given);
    stream.next_out = reinterpret_cast<Bytef*>(state_->output.bytes().data());
    stream.avail_out = kOutputSize;
    const int result = ::inflate(&stream, Z_NO_FLUSH);
    state_->ended = result == Z_STREAM_END;
    const bool isDrained = result == Z_BUF_ERROR && packed.empty();
    if (!state_->ended && result != Z_OK && !isDrained) return false;
    packed = packed.subspan(given - stream.avail_in);
    isFull = stream.avail_out == 0;
    const size_t size = kOutputSize - stream.avail_out;
    if (size != 0 && !use(state_->output.bytes().first(size))) return false;
  }
  return true;
}

}  // namespace tovrek::archive
