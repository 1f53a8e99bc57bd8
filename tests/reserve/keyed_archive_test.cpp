#include <gtest/gtest.h>

#include "formats/WEX_Base64.h"
#include "reserve/KeyedArchiver.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

TEST(KeyedArchive, CarriesObjectsAsTextInTwoLayers) {
  PlistDictionary inner;
  inner.set("date", PlistValue::Date{1588327872.0});
  inner.set("data", PlistValue::Data{std::string("\0\xff", 2)});
  PlistDictionary value;
  value.set("text", "x");
  value.set("list", PlistValue::Array{1, true, 0.25, inner, PlistValue::Array{}});
  value.set("empty", PlistDictionary());
  for (const PlistValue& object : {PlistValue(value), PlistValue("text"), PlistValue(7)}) {
    const std::string text = encodeObject(object);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    EXPECT_TRUE(WEX_Base64::decode(text)->starts_with("YnBsaXN0"));  // "bplist"
    EXPECT_THAT(objectDecode(text), Optional(object));
  }
  for (const char* text : {"", "Zm9v", "!", "Wm05dg=="}) {
    EXPECT_EQ(objectDecode(text), std::nullopt) << text;
  }
}

TEST(KeyedArchive, RefusesWhatUnfoldsWithoutEnd) {
  const auto archive = [](const PlistValue::Array& objects, PlistValue root) {
    PlistDictionary top, plist;
    top.set("root", std::move(root));
    plist.set("$archiver", "NSKeyedArchiver");
    plist.set("$top", top);
    plist.set("$objects", objects);
    return serializePlist(plist, PlistFormat::kBinary);
  };
  const auto listOf = [](const std::vector<uint64_t>& ids) {
    PlistValue::Array references;
    for (const uint64_t id : ids) references.emplace_back(PlistValue::Uid{id});
    PlistDictionary list;
    list.set("NS.objects", references);
    return PlistValue(list);
  };
  const PlistValue::Uid first{1};
  EXPECT_THAT(unarchiveObject(archive({"$null", listOf({2, 2}), "a"}, first)),
              Optional(PlistValue(PlistValue::Array{"a", "a"})));
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({1})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({9})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({0})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", "a"}, "root")), std::nullopt);
  PlistValue::Array doubling = {"$null"};
  for (uint64_t i = 1; i < 40; i++) doubling.push_back(listOf({i + 1, i + 1}));
  doubling.emplace_back("a");
  EXPECT_EQ(unarchiveObject(archive(doubling, first)), std::nullopt);
}

}  // namespace
}  // namespace tovrek
