// Unpacking large entries in pieces.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "archive/deflate.h"

namespace tovrek::archive {

// Takes deflated bytes as they come. Slower than Inflater, but needs a few hundred kilobytes
// whatever the size.
class PieceInflater {
 public:
  PieceInflater();
  ~PieceInflater();

  // Unpacks what follows and gives it to `use` in pieces. False when the bytes are damaged, go on
  // behind their end, or `use` answered false.
  bool feed(Bytes packed, const std::function<bool(Bytes piece)>& use);
  // Whether the end was reached.
  bool hasEnded() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tovrek::archive
