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

// An archive written by hand, to feed shapes the encoder never makes.
std::vector<std::uint8_t> archiveOf(plist_t objects, std::uint64_t root = 1) {
  plist_t archive = plist_new_dict();
  plist_t top = plist_new_dict();
  plist_dict_set_item(top, "root", plist_new_uid(root));
  plist_dict_set_item(archive, "$archiver", plist_new_string("NSKeyedArchiver"));
  plist_dict_set_item(archive, "$version", plist_new_uint(100000));
  plist_dict_set_item(archive, "$top", top);
  plist_dict_set_item(archive, "$objects", objects);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(archive, &bytes, &length);
  std::vector<std::uint8_t> out(bytes, bytes + length);
  plist_to_bin_free(bytes);
  plist_free(archive);
  return out;
}

// A dictionary object with one key and one value, both given as object references.
plist_t oneEntryDictionary(std::uint64_t key, std::uint64_t value, std::uint64_t classRef) {
  plist_t dict = plist_new_dict();
  plist_t keys = plist_new_array();
  plist_array_append_item(keys, plist_new_uid(key));
  plist_t values = plist_new_array();
  plist_array_append_item(values, plist_new_uid(value));
  plist_dict_set_item(dict, "NS.keys", keys);
  plist_dict_set_item(dict, "NS.objects", values);
  plist_dict_set_item(dict, "$class", plist_new_uid(classRef));
  return dict;
}

plist_t classEntry(const char* name) {
  plist_t entry = plist_new_dict();
  plist_t chain = plist_new_array();
  plist_array_append_item(chain, plist_new_string(name));
  plist_array_append_item(chain, plist_new_string("NSObject"));
  plist_dict_set_item(entry, "$classes", chain);
  plist_dict_set_item(entry, "$classname", plist_new_string(name));
  return entry;
}

TEST(KeyedArchiveTest, ReadsTheMutableAndStringObjectForms) {
  // NSMutableDictionary { "k": NSMutableString "v" }.
  plist_t objects = plist_new_array();
  plist_array_append_item(objects, plist_new_string("$null"));
  plist_array_append_item(objects, oneEntryDictionary(2, 3, 4));
  plist_array_append_item(objects, plist_new_string("k"));
  plist_t string = plist_new_dict();
  plist_dict_set_item(string, "NS.string", plist_new_string("v"));
  plist_dict_set_item(string, "$class", plist_new_uid(5));
  plist_array_append_item(objects, string);
  plist_array_append_item(objects, classEntry("NSMutableDictionary"));
  plist_array_append_item(objects, classEntry("NSMutableString"));
  EXPECT_EQ(toObjectOfClasses(archiveOf(objects), kArchiveDictionary), json({{"k", "v"}}));
}

TEST(KeyedArchiveTest, RejectsCyclesAndBadReferences) {
  {  // An array that holds itself.
    plist_t objects = plist_new_array();
    plist_array_append_item(objects, plist_new_string("$null"));
    plist_t array = plist_new_dict();
    plist_t items = plist_new_array();
    plist_array_append_item(items, plist_new_uid(1));
    plist_dict_set_item(array, "NS.objects", items);
    plist_dict_set_item(array, "$class", plist_new_uid(2));
    plist_array_append_item(objects, array);
    plist_array_append_item(objects, classEntry("NSArray"));
    EXPECT_FALSE(toObjectOfClasses(archiveOf(objects), kAllKinds).has_value());
  }
  plist_t empty = plist_new_array();  // a root past the end
  plist_array_append_item(empty, plist_new_string("$null"));
  EXPECT_FALSE(toObjectOfClasses(archiveOf(empty, 7), kAllKinds).has_value());
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
