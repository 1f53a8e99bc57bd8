// Property lists as values, and reading and writing them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

class PlistValue;

// Keys in insertion order, as a file lists them; set() on a known key keeps its place.
class PlistDictionary {
 public:
  using Entry = std::pair<std::string, PlistValue>;

  // Spelled out in the source file: an entry is complete only below.
  PlistDictionary();
  PlistDictionary(const PlistDictionary&);
  PlistDictionary(PlistDictionary&&) noexcept;
  PlistDictionary& operator=(const PlistDictionary&);
  PlistDictionary& operator=(PlistDictionary&&) noexcept;
  ~PlistDictionary();

  const PlistValue* find(std::string_view key) const;  // null when absent
  PlistValue* find(std::string_view key);
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  void set(std::string_view key, PlistValue value);
  // As set() for a key that is known to be new; constant time.
  void append(std::string key, PlistValue value);
  void remove(std::string_view key);

  size_t size() const;
  bool empty() const { return size() == 0; }
  std::vector<Entry>::const_iterator begin() const;
  std::vector<Entry>::const_iterator end() const;
  // Same keys and values, in any order.
  bool operator==(const PlistDictionary& other) const;

 private:
  std::vector<Entry> entries_;
};

// One node: string, number, boolean, date, data, UID, array or dictionary. A value, copied deep.
class PlistValue {
 public:
  struct Date {
    double secondsSince1970;
    bool operator==(const Date&) const = default;
  };
  struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
  };
  struct Uid {
    uint64_t value;
    bool operator==(const Uid&) const = default;
  };
  using Array = std::vector<PlistValue>;

  PlistValue() : value_(std::string()) {}
  PlistValue(std::string text) : value_(std::move(text)) {}
  PlistValue(std::string_view text) : value_(std::string(text)) {}
  PlistValue(const char* text) : value_(std::string(text)) {}
  PlistValue(bool flag) : value_(flag) {}
  PlistValue(int number) : value_(int64_t{number}) {}
  PlistValue(int64_t number) : value_(number) {}
  PlistValue(uint64_t number) : value_(number) {}
  PlistValue(double number) : value_(number) {}
  PlistValue(Date date) : value_(date) {}
  PlistValue(Data data) : value_(std::move(data)) {}
  PlistValue(Uid uid) : value_(uid) {}
  PlistValue(Array array) : value_(std::move(array)) {}
  PlistValue(PlistDictionary dictionary) : value_(std::move(dictionary)) {}

  // The value when the node is of that kind, else null.
  template <class T>
  const T* as() const {
    return std::get_if<T>(&value_);
  }
  template <class T>
  T* as() {
    return std::get_if<T>(&value_);
  }
  const std::string* string() const { return as<std::string>(); }
  const Array* array() const { return as<Array>(); }
  Array* array() { return as<Array>(); }
  const PlistDictionary* dictionary() const { return as<PlistDictionary>(); }
  PlistDictionary* dictionary() { return as<PlistDictionary>(); }
  const bool* boolean() const { return as<bool>(); }
  const Date* date() const { return as<Date>(); }
  const Data* data() const { return as<Data>(); }
  // Integers and reals as a number; none for other kinds.
  std::optional<double> number() const;

  // Calls `visitor` with the value, for code that must treat every kind.
  template <class Visitor>
  decltype(auto) visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }

  bool operator==(const PlistValue&) const = default;

 private:
  std::variant<std::string, bool, int64_t, uint64_t, double, Date, Data, Uid, Array,
               PlistDictionary>
      value_;
};

enum class PlistFormat { kXml, kBinary };

// Parses an XML or binary property list. None, with the reason, for anything else.
std::optional<PlistValue> parsePlist(std::string_view bytes, ErrorText* error = nullptr);
// Serialises; XML is UTF-8 with tab indentation.
std::string serializePlist(const PlistValue& value, PlistFormat format);

// The file's top-level dictionary; none when it is missing, unreadable or holds something else.
std::optional<PlistDictionary> readPlistDictionary(const std::string& path,
                                                   ErrorText* error = nullptr);
// Writes atomically.
bool writePlist(const std::string& path, const PlistValue& value, PlistFormat format,
                ErrorText* error = nullptr);

// The string, array or dictionary under `key`; null when absent or of another kind.
const std::string* stringForKey(const PlistDictionary& dictionary, std::string_view key);
const PlistValue::Array* arrayForKey(const PlistDictionary& dictionary, std::string_view key);
const PlistDictionary* dictionaryForKey(const PlistDictionary& dictionary, std::string_view key);
// The string under `key`, else `otherwise`.
std::string stringForKeyOr(const PlistDictionary& dictionary, std::string_view key,
                           std::string otherwise);

}  // namespace tovrek
