// Reads the pointers in an image's data as they are once the loader is done with them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "macho/ChainedTables.h"
#include "macho/Image.h"
#include "programs/otool/bind_names.h"

namespace tovrek::otool {

// `import` is the symbol that the loader binds; empty for a pointer into the image, and for null.
struct Target {
  uint64_t address = 0;
  std::string_view import;
};

// Knows plain pointers with compressed bind information (threaded too), chained fix-ups, and the
// relocation entries of object files. Each question takes time logarithmic in the image's size.
template <class P>
class PointerReader {
 public:
  explicit PointerReader(const macho::Image<P>& image);

  // None when no pointer of the image's file lies there.
  std::optional<Target> at(uint64_t address) const;

  // The bytes from the address to the end of its segment in the file; empty when it has none.
  macho::ByteView bytesAt(uint64_t address) const;
  template <class T>
  bool read(uint64_t address, T* out) const {
    return bytesAt(address).read(0, out);
  }
  // The text there; none when the address is outside.
  std::optional<std::string_view> textAt(uint64_t address) const;

  // The last symbol of the table that is defined at the address; empty for none.
  std::string_view symbolAt(uint64_t address) const;

 private:
  struct Range {
    uint64_t address, size, fileOffset;
    uint16_t chainFormat;  // 0: plain pointers
  };
  // Names are looked up only when asked for: thousands of symbols may share one long name.
  using SymbolPlace = std::pair<uint64_t, uint64_t>;  // address and number
  struct Relocated {
    uint64_t symbol;
    bool isImport;
    uint64_t address;
  };

  void readSegments();
  void readSymbols();
  void readBinds();
  void readRelocations();
  const Range* rangeOf(uint64_t address) const;
  Target decode(uint16_t format, uint64_t raw) const;

  const macho::Image<P>& image_;
  macho::ChainedTables<typename P::Order> fixups_;
  BindNames binds_;
  uint64_t base_ = 0;
  std::vector<Range> ranges_;                              // by address
  std::vector<SymbolPlace> symbols_;                       // by address
  std::vector<std::pair<uint64_t, Relocated>> relocated_;  // by address
};

}  // namespace tovrek::otool
