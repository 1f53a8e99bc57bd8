#include "macho/SymbolNames.h"

#include <algorithm>
#include <utility>

namespace tovrek::macho {

bool SymbolNames::Before::operator()(const Name* a, const Name* b) const {
  if (a->hash != b->hash) return a->hash < b->hash;
  if (a->text.size() != b->text.size()) return a->text.size() < b->text.size();
  return a->text < b->text;
}

SymbolNames::SymbolNames(ByteView pool, std::vector<uint32_t> starts) {
  if (starts.empty()) return;
  std::ranges::sort(starts);
  starts.erase(std::unique(starts.begin(), starts.end()), starts.end());
  names_.resize(starts.size());

  const void* begin = pool.bytes().data();
  const std::string_view letters(static_cast<const char*>(begin), pool.size());
  CStringHash hash;
  size_t end = letters.size();
  size_t next = starts.size();
  for (size_t i = letters.size(); i-- > starts.front();) {
    if (letters[i] == '\0') {
      hash = CStringHash();
      end = i;
    } else {
      hash.prepend(letters[i]);
    }
    if (next > 0 && starts[next - 1] == i) {
      --next;
      names_[next] = {starts[next], false, hash.value(), letters.substr(i, end - i)};
    }
  }
}

SymbolNames::Name* SymbolNames::find(uint32_t start) {
  const auto found = std::ranges::lower_bound(names_, start, {}, &Name::start);
  return found != names_.end() && found->start == start ? &*found : nullptr;
}

bool SymbolNames::add(uint32_t start) {
  const Name* name = find(start);
  return name != nullptr && defined_.insert(name).second;
}

bool SymbolNames::contains(uint32_t start) {
  Name* name = find(start);
  if (name == nullptr || name->knownAbsent) return false;
  if (defined_.contains(name)) return true;
  name->knownAbsent = true;
  return false;
}

}  // namespace tovrek::macho
