// Ownership of what C libraries allocate.
#pragma once

namespace tovrek {

// The deleter of a std::unique_ptr whose object the function `Free` takes back.
template <auto Free>
struct Freer {
  template <class T>
  void operator()(T* object) const noexcept {
    Free(object);
  }
};

}  // namespace tovrek
