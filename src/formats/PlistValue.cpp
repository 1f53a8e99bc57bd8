#include "formats/PlistValue.h"

#include <algorithm>

namespace tovrek {

PlistDictionary::PlistDictionary() = default;
PlistDictionary::PlistDictionary(const PlistDictionary&) = default;
PlistDictionary::PlistDictionary(PlistDictionary&&) noexcept = default;
PlistDictionary& PlistDictionary::operator=(const PlistDictionary&) = default;
PlistDictionary& PlistDictionary::operator=(PlistDictionary&&) noexcept = default;
PlistDictionary::~PlistDictionary() = default;

const PlistValue* PlistDictionary::find(std::string_view key) const {
  const auto at = std::find_if(entries_.begin(), entries_.end(),
                               [&](const Entry& entry) { return entry.first == key; });
  return at == entries_.end() ? nullptr : &at->second;
}

PlistValue* PlistDictionary::find(std::string_view key) {
  return const_cast<PlistValue*>(std::as_const(*this).find(key));
}

void PlistDictionary::set(std::string_view key, PlistValue value) {
  if (PlistValue* old = find(key)) {
    *old = std::move(value);
  } else {
    append(std::string(key), std::move(value));
  }
}

void PlistDictionary::append(std::string key, PlistValue value) {
  entries_.emplace_back(std::move(key), std::move(value));
}

void PlistDictionary::remove(std::string_view key) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.first == key; });
}

size_t PlistDictionary::size() const {
  return entries_.size();
}
std::vector<PlistDictionary::Entry>::const_iterator PlistDictionary::begin() const {
  return entries_.begin();
}
std::vector<PlistDictionary::Entry>::const_iterator PlistDictionary::end() const {
  return entries_.end();
}

bool PlistDictionary::operator==(const PlistDictionary& other) const {
  if (size() != other.size()) return false;
  const auto byKey = [](const PlistDictionary& dictionary) {
    std::vector<const Entry*> entries;
    for (const Entry& entry : dictionary) entries.push_back(&entry);
    std::ranges::sort(entries, {},
                      [](const Entry* entry) -> const std::string& { return entry->first; });
    return entries;
  };
  return std::ranges::equal(byKey(*this), byKey(other),
                            [](const Entry* a, const Entry* b) { return *a == *b; });
}

std::optional<double> PlistValue::number() const {
  if (const auto* value = as<int64_t>()) return static_cast<double>(*value);
  if (const auto* value = as<uint64_t>()) return static_cast<double>(*value);
  if (const auto* value = as<double>()) return *value;
  return std::nullopt;
}

const std::string* stringForKey(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue* value = dictionary.find(key);
  return value == nullptr ? nullptr : value->string();
}

const PlistValue::Array* arrayForKey(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue* value = dictionary.find(key);
  return value == nullptr ? nullptr : value->array();
}

const PlistDictionary* dictionaryForKey(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue* value = dictionary.find(key);
  return value == nullptr ? nullptr : value->dictionary();
}

std::string stringForKeyOr(const PlistDictionary& dictionary, std::string_view key,
                           std::string otherwise) {
  const std::string* value = stringForKey(dictionary, key);
  return value == nullptr ? otherwise : *value;
}

}  // namespace tovrek
