// A symbol described in words, as `nm -m` prints it behind the address.
#pragma once

#include <string>
#include <string_view>

#include "macho/Image.h"

namespace tovrek::nm {

template <class P>
class SymbolWords {
 public:
  SymbolWords(const macho::Image<P>& image, const macho::macho_nlist<P>& symbol)
      : image_(image), symbol_(symbol) {}

  // Such as "(__TEXT,__text) external _main" or "(undefined) external _puts (from libSystem)".
  std::string text() const;
  // The symbol that an indirect one stands for.
  std::string_view indirectName() const;

 private:
  std::string place() const;
  std::string scope() const;
  std::string flags() const;
  std::string origin() const;

  const macho::Image<P>& image_;
  const macho::macho_nlist<P>& symbol_;
};

// The name of a library as people say it: "Foundation" for ".../Foundation.framework/Foundation",
// "libobjc" for "/usr/lib/libobjc.A.dylib", else the path.
std::string_view libraryShortName(std::string_view path);

}  // namespace tovrek::nm
