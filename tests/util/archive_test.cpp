#include <random>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include "corvane/util/data.h"

namespace corvane::data {
namespace {

using nlohmann::json;
constexpr unsigned kAllKinds = kArchiveDictionary | kArchiveArray | kArchiveString | kArchiveNumber | kArchiveNull;

TEST(KeyedArchiveTest, DecodesWhatItEncodes) {
  for (const char* text : {R"({"F0Tg":2000,"F1Tg":1800.5,"mode":"manual","on":true})", R"([])", R"("text")",
                           "-9223372036854775808", "9007199254740993", R"({"a":{"b":[1,"x",null,{"c":[]}]},"d":"x"})",
                           R"(["same","same","same"])", R"({"é":"温度"})"}) {
    const json value = json::parse(text);
    EXPECT_EQ(toObjectOfClasses(archivedDataWithObject(value), kAllKinds), value) << text;
  }
}

TEST(KeyedArchiveTest, AllowedKindsApplyToTheRoot) {
  const auto dictionary = archivedDataWithObject(json{{"a", json::array({1, "x"})}});
  EXPECT_TRUE(toObjectOfClasses(dictionary, kArchiveDictionary).has_value());
  EXPECT_FALSE(toObjectOfClasses(dictionary, kArchiveArray).has_value());
  const auto array = archivedDataWithObject(json::array({1}));
  EXPECT_FALSE(toObjectOfClasses(array, kArchiveDictionary).has_value());
  EXPECT_TRUE(toObjectOfClasses(array, kArchiveArray).has_value());
  // A null root is nil.
  EXPECT_FALSE(toObjectOfClasses(archivedDataWithObject(json(nullptr)), kAllKinds).has_value());
}

// A property list from JSON, where {"UID": n} stands for an object reference.
plist_t plistOf(const json& value) {
  if (value.is_object() && value.contains("UID")) return plist_new_uid(value["UID"].get<std::uint64_t>());
  if (value.is_string()) return plist_new_string(value.get<std::string>().c_str());
  if (value.is_number()) return plist_new_uint(value.get<std::uint64_t>());
  plist_t node = value.is_array() ? plist_new_array() : plist_new_dict();
  for (const auto& [key, item] : value.items()) {
    if (value.is_array()) {
      plist_array_append_item(node, plistOf(item));
    } else {
      plist_dict_set_item(node, key.c_str(), plistOf(item));
    }
  }
  return node;
}

// Decodes an archive written by hand, to feed shapes the encoder never makes.
std::optional<json> decodeByHand(const json& objects, std::uint64_t root = 1) {
  plist_t archive = plistOf({{"$archiver", "NSKeyedArchiver"}, {"$version", 100000},
                             {"$top", {{"root", {{"UID", root}}}}}, {"$objects", objects}});
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(archive, &bytes, &length);
  std::vector<std::uint8_t> data(bytes, bytes + length);
  plist_to_bin_free(bytes);
  plist_free(archive);
  return toObjectOfClasses(data, kAllKinds);
}

json uid(int n) { return {{"UID", n}}; }
json classEntry(const char* name) { return {{"$classes", json::array({name, "NSObject"})}, {"$classname", name}}; }

TEST(KeyedArchiveTest, ReadsTheMutableFormsAndRejectsCyclesAndBadReferences) {
  const json dictionary = {
      {"NS.keys", json::array({uid(2)})}, {"NS.objects", json::array({uid(3)})}, {"$class", uid(4)}};
  const json string = {{"NS.string", "v"}, {"$class", uid(5)}};
  EXPECT_EQ(decodeByHand(json::array({"$null", dictionary, "k", string, classEntry("NSMutableDictionary"),
                                      classEntry("NSMutableString")})),
            json({{"k", "v"}}));
  const json array = {{"NS.objects", json::array({uid(2)})}, {"$class", uid(3)}};
  EXPECT_EQ(decodeByHand(json::array({"$null", array, "v", classEntry("NSMutableArray")})), json::array({"v"}));
  const json holdsItself = {{"NS.objects", json::array({uid(1)})}, {"$class", uid(2)}};
  EXPECT_EQ(decodeByHand(json::array({"$null", holdsItself, classEntry("NSArray")})), std::nullopt);
  EXPECT_EQ(decodeByHand(json::array({"$null"}), 7), std::nullopt);  // a root past the end
}

TEST(KeyedArchiveTest, CorruptInputNeverCrashes) {
  const auto good = archivedDataWithObject(json::parse(R"({"a":[1,2,{"b":"c"}],"d":2.5,"e":"f"})"));
  for (std::size_t length = 0; length < good.size(); ++length) {
    std::vector<std::uint8_t> truncated(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(toObjectOfClasses(truncated, kAllKinds).has_value()) << length;
  }
  std::mt19937 random(1234);
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::uint8_t> bytes(good);
    // Flip a few bytes of a real archive, so that most of the structure still parses.
    for (int flips = 0; flips < 1 + round % 4; ++flips)
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    (void)toObjectOfClasses(bytes, kAllKinds);
  }
}

}  // namespace
}  // namespace corvane::data
