#include "listing/Output.h"

namespace tovrek::listing {

void Output::text(std::string_view text) {
  buffer_.append(text.data(), text.data() + text.size());
  if (buffer_.size() >= kPiece) flush();
}

void Output::flush() {
  if (buffer_.size() == 0) return;
  writer_({buffer_.data(), buffer_.size()});
  written_ += buffer_.size();
  buffer_.clear();
}

}  // namespace tovrek::listing
