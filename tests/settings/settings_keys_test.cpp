#include "corvane/settings/settings_keys.h"

#include <set>

#include <gtest/gtest.h>

#include "corvane/settings/setting_text.h"

namespace corvane::settings {
namespace {

using nlohmann::json;

TEST(SettingKeys, EveryRowIsUniqueWithADefaultOfItsTypeOrANote) {
  std::set<std::string_view> keys;
  for (const auto& row : kSettingKeys) {
    SCOPED_TRACE(std::string(row.key));
    EXPECT_TRUE(keys.insert(row.key).second);
    EXPECT_NE(row.defaultJson.empty(), row.defaultNote.empty()) << "either a fixed default or a note";
    if (!row.defaultJson.empty()) {
      // What `corvane settings set` accepts for the key also takes its default, as a value of the
      // same kind (a whole number is no default of a real-valued key).
      const json value = json::parse(row.defaultJson, nullptr, false);
      std::string error;
      const auto parsed = parseSettingText(row.type, row.defaultJson, &error);
      EXPECT_EQ(parsed, value) << error;
      EXPECT_EQ(parsed.value_or(json()).is_number_float(), value.is_number_float()) << row.defaultJson;
    }
    if (!row.notification.empty()) {
      EXPECT_TRUE(row.notification.ends_with("DidChangeNotification")) << row.notification;
    }
    EXPECT_EQ(findSettingKey(row.prefix ? readerTimerStartKey("cpu") : std::string(row.key)), &row);
  }
  // A reader timer key needs a name after its prefix.
  EXPECT_EQ(findSettingKey("HWReaderTimerStart_"), nullptr);
  EXPECT_EQ(findSettingKey("HWReaderTimerStartX"), nullptr);
}

TEST(SettingText, ParsesForTheKeysTypeOrRefuses) {
  struct TextCase {
    SettingType type;
    const char* text;
    std::optional<json> value;  // nothing: refused
  };

  for (const TextCase& c :
       std::initializer_list<TextCase>{{SettingType::UnsignedInteger, "1", json(1u)},
                                       {SettingType::UnsignedInteger, "18446744073709551616", std::nullopt},
                                       {SettingType::UnsignedInteger, "+1", std::nullopt},
                                       {SettingType::UnsignedInteger, "1.5", std::nullopt},
                                       {SettingType::Integer, "-1700000000", json(std::int64_t{-1700000000})},
                                       {SettingType::Double, "2", json(2.0)},
                                       {SettingType::Double, "inf", std::nullopt},
                                       {SettingType::Bool, "YES", json(true)},
                                       {SettingType::Bool, "0", json(false)},
                                       {SettingType::Bool, "on", std::nullopt},
                                       {SettingType::String, "\"a \\\"b\\\"\"", json("a \"b\"")},
                                       {SettingType::String, "\"unterminated", json("\"unterminated")},
                                       {SettingType::StringArray, "[\"TC0P\",\"F0Ac\"]", json::array({"TC0P", "F0Ac"})},
                                       {SettingType::StringArray, "[\"TC0P\",1]", std::nullopt},
                                       {SettingType::ItemList, "[{\"identifier\":\"Fan\",\"enabled\":true}]",
                                        json::array({{{"identifier", "Fan"}, {"enabled", true}}})},
                                       {SettingType::ItemList, "[{\"identifier\":null}]", std::nullopt}}) {
    std::string error;
    const auto value = parseSettingText(c.type, c.text, &error);
    EXPECT_EQ(value, c.value);
    if (value) {
      EXPECT_EQ(value->type(), c.value->type());
    }
    EXPECT_EQ(error.empty(), value.has_value());
  }
}

}  // namespace
}  // namespace corvane::settings
