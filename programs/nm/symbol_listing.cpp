#include "programs/nm/symbol_listing.h"

#include <algorithm>
#include <tuple>
#include <vector>

#include "programs/nm/SymbolWords.h"
#include "programs/nm/symbol_types.h"

namespace tovrek::nm {
namespace {

using listing::Output;

constexpr uint64_t kLettersPerByte = 64;
constexpr uint64_t kSmallestLimit = 1 << 20;

template <class P>
struct Symbol {
  std::string_view name;
  uint64_t value;
  macho::macho_nlist<P> record;

  uint8_t type() const { return record.n_type & kTypeMask; }
  bool isExternal() const { return (record.n_type & kExternal) != 0; }
  bool isDebugger() const { return (record.n_type & kDebuggerMask) != 0; }
  bool isUndefined() const {
    return !isDebugger() && (type() == kUndefined || type() == kPrebound) && value == 0;
  }
};

template <class P>
bool isWanted(const Symbol<P>& symbol, const NmOptions& options) {
  if (symbol.isDebugger()) {
    return options.debugSymbols && !options.externalOnly && !options.undefinedOnly;
  }
  if (options.externalOnly && !symbol.isExternal()) return false;
  if (options.undefinedOnly) return symbol.isUndefined();
  return !options.definedOnly || !symbol.isUndefined();
}

template <class P>
void sortSymbols(const NmOptions& options, std::vector<Symbol<P>>* symbols) {
  if (options.order == NmOptions::Order::kName) {
    std::ranges::stable_sort(*symbols, [](const auto& a, const auto& b) {
      return std::tie(a.name, a.value) < std::tie(b.name, b.value);
    });
  } else if (options.order == NmOptions::Order::kAddress) {
    std::ranges::stable_sort(*symbols, [](const auto& a, const auto& b) {
      return std::tuple(!a.isUndefined(), a.value, a.name) <
             std::tuple(!b.isUndefined(), b.value, b.name);
    });
  }
  if (options.reverse) std::ranges::reverse(*symbols);
}

template <class P>
char sectionLetter(const macho::Image<P>& image, uint8_t number) {
  if (number == 0 || number > image.sections.size()) return 's';
  const auto& section = image.sections[number - 1];
  const std::string_view segment = section.segname.view(), name = section.sectname.view();
  if (segment == "__TEXT" && name == "__text") return 't';
  if (segment == "__DATA" && name == "__data") return 'd';
  if (segment == "__DATA" && name == "__bss") return 'b';
  return 's';
}

template <class P>
char letterOf(const macho::Image<P>& image, const Symbol<P>& symbol) {
  if (symbol.isDebugger()) return '-';
  char letter = '?';
  switch (symbol.type()) {
    case kUndefined:
      letter = symbol.value != 0 && symbol.isExternal() ? 'c' : 'u';
      break;
    case kPrebound:
      letter = 'u';
      break;
    case kAbsolute:
      letter = 'a';
      break;
    case kIndirect:
      letter = 'i';
      break;
    case kInSection:
      letter = sectionLetter(image, symbol.record.n_sect);
      break;
    default:
      return '?';
  }
  constexpr char kUpper = 'a' - 'A';
  return symbol.isExternal() ? static_cast<char>(letter - kUpper) : letter;
}

// Stabs of the debugger have numbers of their own in place of a letter's meaning.
std::string_view stabName(uint8_t type) {
  constexpr std::pair<uint8_t, std::string_view> kNames[] = {
      {0x20, "GSYM"},  {0x22, "FNAME"}, {0x24, "FUN"},   {0x26, "STSYM"}, {0x28, "LCSYM"},
      {0x2e, "BNSYM"}, {0x32, "AST"},   {0x3c, "OPT"},   {0x40, "RSYM"},  {0x44, "SLINE"},
      {0x4e, "ENSYM"}, {0x60, "SSYM"},  {0x64, "SO"},    {0x66, "OSO"},   {0x80, "LSYM"},
      {0x82, "BINCL"}, {0x84, "SOL"},   {0x86, "PARAM"}, {0x88, "VERS"},  {0x8a, "OLEV"},
      {0xa0, "PSYM"},  {0xa2, "EINCL"}, {0xa4, "ENTRY"}, {0xc0, "LBRAC"}, {0xc2, "EXCL"},
      {0xe0, "RBRAC"}, {0xe2, "BCOMM"}, {0xe4, "ECOMM"}, {0xe8, "ECOML"}, {0xfe, "LENG"},
  };
  for (const auto& [number, name] : kNames) {
    if (number == type) return name;
  }
  return {};
}

template <class P>
void listSymbol(const macho::Image<P>& image, const NmOptions& options, const Symbol<P>& symbol,
                Output* output) {
  if (options.namesOnly || (options.undefinedOnly && !options.inWords)) {
    return output->print("{}\n", symbol.name);
  }
  constexpr int kWidth = P::kPointerSize * 2;
  const bool hasValue =
      !symbol.isUndefined() && (symbol.isDebugger() || symbol.type() != kIndirect);
  if (hasValue) {
    output->print("{:0{}x} ", symbol.value, kWidth);
  } else {
    output->print("{:{}} ", "", kWidth);
  }
  const uint8_t number = symbol.record.n_type;
  if (symbol.isDebugger()) {
    const std::string_view name = stabName(number);
    output->print("- {:02x} {:04x} {:>5} ", symbol.record.n_sect, uint16_t{symbol.record.n_desc},
                  name.empty() ? fmt::format("{:02x}", number) : name);
    return output->print("{}\n", symbol.name);
  }
  if (options.inWords) {
    return output->print("{}\n", SymbolWords<P>(image, symbol.record).text());
  }
  output->print("{} {}", letterOf(image, symbol), symbol.name);
  if (symbol.type() == kIndirect) {
    output->print(" (indirect for {})", SymbolWords<P>(image, symbol.record).indirectName());
  }
  output->text("\n");
}

}  // namespace

template <class P>
Listed listSymbols(const macho::Image<P>& image, const NmOptions& options, std::string_view prefix,
                   Output* output) {
  std::vector<Symbol<P>> symbols;
  const uint64_t count = image.symbolCount();
  uint64_t lettersLeft = kSmallestLimit + image.bytes.size() * kLettersPerByte;
  uint64_t i = 0;
  for (; i < count; ++i) {
    const macho::macho_nlist<P> record = image.symbol(i);
    const Symbol<P> symbol{image.symbolName(record), record.n_value, record};
    if (symbol.name.size() > lettersLeft) break;
    lettersLeft -= symbol.name.size();
    if (isWanted(symbol, options)) symbols.push_back(symbol);
  }
  sortSymbols(options, &symbols);
  for (const Symbol<P>& symbol : symbols) {
    output->text(prefix);
    listSymbol(image, options, symbol, output);
  }
  if (count == 0) return Listed::kNone;
  return i < count ? Listed::kNotAll : Listed::kSymbols;
}

#define TOVREK_INSTANTIATE(P) \
  template Listed listSymbols(const macho::Image<P>&, const NmOptions&, std::string_view, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::nm
