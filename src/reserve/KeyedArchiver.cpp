#include "reserve/KeyedArchiver.h"

#include <map>

#include "formats/WEX_Base64.h"
#include "host/clock.h"

namespace tovrek {
namespace {

constexpr const char* kArchiver = "NSKeyedArchiver";
constexpr const char* kObjects = "NS.objects";
constexpr const char* kKeys = "NS.keys";
constexpr const char* kTime = "NS.time";  // seconds since 2001

PlistDictionary dictionaryOf(std::initializer_list<std::pair<const char*, PlistValue>> entries) {
  PlistDictionary dictionary;
  for (const auto& [key, value] : entries) dictionary.set(key, value);
  return dictionary;
}

// Numbers objects in the order in which they are met; number 0 stands for no value.
class Archiver {
 public:
  PlistValue::Uid add(const PlistValue& value) {
    const PlistValue::Uid uid = reserve();
    PlistValue object = value;
    if (const PlistValue::Array* array = value.array()) {
      object = dictionaryOf({{kObjects, addAll(*array)}, {"$class", classNamed("NSArray")}});
    } else if (const PlistDictionary* dictionary = value.dictionary()) {
      PlistValue::Array keys, values;
      for (const auto& [key, entry] : *dictionary) {
        keys.emplace_back(key);
        values.push_back(entry);
      }
      const PlistValue::Array keyIds = addAll(keys), valueIds = addAll(values);
      object = dictionaryOf(
          {{kKeys, keyIds}, {kObjects, valueIds}, {"$class", classNamed("NSDictionary")}});
    } else if (const PlistValue::Date* date = value.date()) {
      object = dictionaryOf({{kTime, date->secondsSince1970 - kReferenceDateOffset},
                             {"$class", classNamed("NSDate")}});
    }
    objects_[uid.value] = std::move(object);
    return uid;
  }

  PlistValue::Array takeObjects() { return std::move(objects_); }

 private:
  PlistValue::Uid reserve() {
    objects_.emplace_back();
    return {objects_.size() - 1};
  }

  PlistValue::Array addAll(const PlistValue::Array& values) {
    PlistValue::Array ids;
    for (const PlistValue& value : values) ids.emplace_back(add(value));
    return ids;
  }

  PlistValue::Uid classNamed(const char* name) {
    const auto known = classes_.find(name);
    if (known != classes_.end()) return known->second;
    const PlistValue::Uid uid = reserve();
    const PlistValue::Array classes = {name, "NSObject"};
    objects_[uid.value] = dictionaryOf({{"$classname", name}, {"$classes", classes}});
    return classes_.emplace(name, uid).first->second;
  }

  PlistValue::Array objects_ = {"$null"};
  std::map<std::string, PlistValue::Uid> classes_;
};

// Archives may share objects, so a small one can unfold without end: both the nesting and the
// number of objects built are bounded.
class Unarchiver {
 public:
  explicit Unarchiver(const PlistValue::Array& objects) : objects_(objects) {}

  std::optional<PlistValue> build(const PlistValue* reference, int depth = 0) {
    const auto* uid = reference == nullptr ? nullptr : reference->as<PlistValue::Uid>();
    if (uid == nullptr || uid->value == 0 || uid->value >= objects_.size()) return std::nullopt;
    if (depth > kMaxDepth || --budget_ < 0) return std::nullopt;
    const PlistValue& object = objects_[uid->value];
    const PlistDictionary* fields = object.dictionary();
    if (fields == nullptr) return object;
    if (const PlistValue* time = fields->find(kTime)) {
      const std::optional<double> seconds = time->number();
      if (!seconds) return std::nullopt;
      return PlistValue::Date{*seconds + kReferenceDateOffset};
    }
    const std::optional<PlistValue::Array> values = buildAll(fields->find(kObjects), depth);
    if (!values || !fields->contains(kKeys)) {
      return values ? std::optional<PlistValue>(*values) : std::nullopt;
    }
    const std::optional<PlistValue::Array> keys = buildAll(fields->find(kKeys), depth);
    if (!keys || keys->size() != values->size()) return std::nullopt;
    PlistDictionary dictionary;
    for (size_t i = 0; i < keys->size(); i++) {
      const std::string* key = (*keys)[i].string();
      if (key == nullptr) return std::nullopt;
      dictionary.set(*key, (*values)[i]);
    }
    return dictionary;
  }

 private:
  static constexpr int kMaxDepth = 100;

  std::optional<PlistValue::Array> buildAll(const PlistValue* references, int depth) {
    const PlistValue::Array* list = references == nullptr ? nullptr : references->array();
    if (list == nullptr) return std::nullopt;
    PlistValue::Array values;
    for (const PlistValue& reference : *list) {
      std::optional<PlistValue> value = build(&reference, depth + 1);
      if (!value) return std::nullopt;
      values.push_back(std::move(*value));
    }
    return values;
  }

  const PlistValue::Array& objects_;
  int budget_ = 100000;
};

}  // namespace

std::string archiveObject(const PlistValue& value) {
  Archiver archiver;
  const PlistDictionary top = dictionaryOf({{"root", archiver.add(value)}});
  return serializePlist(dictionaryOf({{"$version", 100000},
                                      {"$archiver", kArchiver},
                                      {"$top", top},
                                      {"$objects", archiver.takeObjects()}}),
                        PlistFormat::kBinary);
}

std::optional<PlistValue> unarchiveObject(std::string_view archive) {
  const std::optional<PlistValue> plist = parsePlist(archive);
  const PlistDictionary* root = plist ? plist->dictionary() : nullptr;
  if (root == nullptr || stringForKeyOr(*root, "$archiver", "") != kArchiver) return std::nullopt;
  const PlistDictionary* top = dictionaryForKey(*root, "$top");
  const PlistValue::Array* objects = arrayForKey(*root, "$objects");
  if (top == nullptr || objects == nullptr) return std::nullopt;
  return Unarchiver(*objects).build(top->find("root"));
}

std::string encodeObject(const PlistValue& object) {
  return WEX_Base64::encodeWithoutLinebreaks(
      WEX_Base64::encodeWithoutLinebreaks(archiveObject(object)));
}

std::optional<PlistValue> objectDecode(std::string_view text) {
  const std::optional<std::string> inner = WEX_Base64::decode(text);
  const std::optional<std::string> archive = inner ? WEX_Base64::decodeBytes(*inner) : std::nullopt;
  return archive ? unarchiveObject(*archive) : std::nullopt;
}

}  // namespace tovrek
