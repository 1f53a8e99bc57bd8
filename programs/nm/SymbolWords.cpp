#include "programs/nm/SymbolWords.h"

#include <fmt/format.h>

#include "programs/nm/symbol_types.h"

namespace tovrek::nm {
namespace {

constexpr uint32_t kObjectFile = 1;
constexpr uint32_t kTwoLevelNames = 0x80;
// Library numbers with a meaning of their own.
constexpr uint32_t kSelf = 0, kDynamicLookup = 0xfe, kMainExecutable = 0xff;

}  // namespace

std::string_view libraryShortName(std::string_view path) {
  const size_t slash = path.rfind('/');
  const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  // ".../Name.framework/Name" and ".../Name.framework/Versions/A/Name".
  for (size_t end = slash; end != std::string_view::npos && end != 0;) {
    const size_t start = path.rfind('/', end - 1) + 1;
    const std::string_view component = path.substr(start, end - start);
    if (component.starts_with(last) && component.substr(last.size()) == ".framework") return last;
    end = start == 0 ? start : start - 1;
  }
  constexpr std::string_view kDylib = ".dylib";
  if (!last.ends_with(kDylib)) return path;
  std::string_view name = last.substr(0, last.size() - kDylib.size());
  if (name.size() > 2 && name[name.size() - 2] == '.') name.remove_suffix(2);  // ".A"
  return name;
}

template <class P>
std::string_view SymbolWords<P>::indirectName() const {
  macho::macho_nlist<P> other = symbol_;
  const uint64_t place = symbol_.n_value;
  if (place > UINT32_MAX) return {};
  other.n_strx = static_cast<uint32_t>(place);
  return image_.symbolName(other);
}

template <class P>
std::string SymbolWords<P>::place() const {
  const uint16_t desc = symbol_.n_desc;
  switch (symbol_.n_type & kTypeMask) {
    case kUndefined:
      if (symbol_.n_value != 0) {
        const uint32_t align = desc >> 8 & 0xf;
        return align == 0 ? "(common) " : fmt::format("(common) (alignment 2^{}) ", align);
      }
      return (desc & kReferenceMask) == kUndefinedLazy ? "(undefined [lazy bound]) "
                                                       : "(undefined) ";
    case kPrebound:
      return "(prebound undefined) ";
    case kAbsolute:
      return "(absolute) ";
    case kIndirect:
      return "(indirect) ";
    case kInSection: {
      if (symbol_.n_sect == 0 || symbol_.n_sect > image_.sections.size()) return "(?,?) ";
      const auto& section = image_.sections[symbol_.n_sect - 1u];
      return fmt::format("({},{}) ", section.segname.view(), section.sectname.view());
    }
    default:
      return "(?) ";
  }
}

template <class P>
std::string SymbolWords<P>::scope() const {
  const uint16_t desc = symbol_.n_desc;
  const bool isPrivate = (symbol_.n_type & kPrivateExternal) != 0;
  if ((symbol_.n_type & kExternal) == 0) {
    return isPrivate ? "non-external (was a private external) " : "non-external ";
  }
  std::string text = (desc & kReferencedDynamically) != 0 ? "[referenced dynamically] " : "";
  if (isPrivate) {
    text += (desc & kWeakDefinition) != 0 ? "weak private external " : "private external ";
  } else if ((desc & (kWeakReference | kWeakDefinition)) == 0) {
    text += "external ";
  } else {
    const bool both = (desc & kWeakReference) != 0 && (desc & kWeakDefinition) != 0;
    text += both ? "weak external automatically hidden " : "weak external ";
  }
  return text;
}

template <class P>
std::string SymbolWords<P>::flags() const {
  const uint16_t desc = symbol_.n_desc;
  const bool defined = (symbol_.n_type & kTypeMask) != kUndefined;
  std::string text;
  if (image_.header.filetype == kObjectFile) {
    if ((desc & kNoDeadStrip) != 0) text += "[no dead strip] ";
    if (defined && (desc & kResolver) != 0) text += "[symbol resolver] ";
    if (defined && (desc & kAltEntry) != 0) text += "[alt entry] ";
    if (defined && (desc & kColdFunction) != 0) text += "[cold func] ";
  }
  if (defined && (desc & kThumb) != 0) text += "[Thumb] ";
  return text;
}

// The library of an undefined symbol, where images record it.
template <class P>
std::string SymbolWords<P>::origin() const {
  const uint8_t type = symbol_.n_type & kTypeMask;
  const bool undefined = (type == kUndefined && symbol_.n_value == 0) || type == kPrebound;
  if (!undefined || (image_.header.flags & kTwoLevelNames) == 0) return "";
  if (image_.header.filetype == kObjectFile) return "";
  const uint32_t number = symbol_.n_desc >> 8;
  if (number == kSelf) return "";
  if (number == kDynamicLookup) return " (dynamically looked up)";
  if (number == kMainExecutable) return " (from executable)";
  if (number > image_.libraries.size()) {
    return fmt::format(" (from bad library ordinal {})", number);
  }
  const std::string_view path = macho::dylibName<P>(image_.libraries[number - 1]);
  return fmt::format(" (from {})", libraryShortName(path));
}

template <class P>
std::string SymbolWords<P>::text() const {
  std::string text = place() + scope() + flags() + std::string(image_.symbolName(symbol_));
  if ((symbol_.n_type & kTypeMask) == kIndirect) {
    text += fmt::format(" (for {})", indirectName());
  }
  return text + origin();
}

#define TOVREK_INSTANTIATE(P) template class SymbolWords<P>;
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::nm
